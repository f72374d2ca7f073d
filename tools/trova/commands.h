// The subcommands of `trova`. Each takes its own arguments (without the
// command name) and returns the process's exit status; output goes to
// standard output, messages to standard error.
#pragma once

#include <QStringList>

namespace trovara::cli {

// `trova criteria-text FILE|-`: prints the query text of a criteria tree
// written as JSON. Exit status 0, or 2 for unreadable or invalid input.
int criteriaText(const QStringList& arguments);

// Writes "trova: message" to standard error.
void printError(const QString& message);

}  // namespace trovara::cli
