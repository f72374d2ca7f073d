// The subcommands of `trova`. Each takes its own arguments (without the
// command name) and returns the process's exit status; output goes to
// standard output, messages to standard error.
#pragma once

#include "index/query/item_view.h"

#include <QStringList>

#include <map>
#include <string>

namespace trovara::cli {

// Options given before the command.
struct GlobalOptions {
    // --index DIR, else $TROVARA_INDEX, else the default index folder.
    std::string indexDirectory;
};

// `trova index add|remove DIR… | update | rebuild | status`.
int indexCommand(const GlobalOptions& global, const QStringList& arguments);

// `trova ls FILE…`: every attribute of each file, sorted by key.
int lsCommand(const GlobalOptions& global, const QStringList& arguments);

// `trova import -L` (every importer and its content types) and `trova
// import FILE…` (what the importers extract from each file).
int importCommand(const GlobalOptions& global, const QStringList& arguments);

// `trova preview [-terms WORD]… FILE`: the text the text preview shows of
// the file (read through its helper process), with the words coloured when
// standard output is a terminal. Exit status 1 when the file has no text or
// cannot be read, 2 for bad arguments.
int previewCommand(const QStringList& arguments);

// `trova find [-onlyin DIR]… [-name TEXT] [-count] [-0] [-interpret] QUERY`.
int findCommand(const GlobalOptions& global, const QStringList& arguments);

// `trova search [options] QUERY`: the query run as a search window runs it
// (exclusions, limit, quick filter, columns); prints the rows, one line
// each with the columns' texts separated by tabs, then the status line.
// With -live, prints the status line whenever it changes, until
// interrupted. Exit status 1 when the query cannot run or reaches the
// result cap, 2 for bad arguments.
int searchCommand(const GlobalOptions& global, const QStringList& arguments);

// `trova doc new|show|run`: search documents (.trova files) from the
// command line. Exit status 0, 1 when a file cannot be read, written or
// run, 2 for bad arguments.
int docCommand(const GlobalOptions& global, const QStringList& arguments);

// `trova daemon start|stop|status`.
int daemonCommand(const GlobalOptions& global, const QStringList& arguments);

// `trova criteria-text FILE|-`: prints the query text of a criteria tree
// written as JSON. Exit status 0, or 2 for unreadable or invalid input.
int criteriaText(const QStringList& arguments);

// `key = value` lines, keys aligned, as `trova ls` prints attributes.
void printAttributes(const std::map<std::string, index::query::AttributeValue>& attributes);
// A text in double quotes, with quotes, backslashes and line breaks escaped.
std::string quotedText(const std::string& text);

// A line on standard output, flushed.
void printLine(const QString& text);
}  // namespace trovara::cli
namespace trovara::query {
class ResultTableModel;
}
namespace trovara::cli {
// The rows of a result table, one line each, the columns' texts separated
// by tabs.
void printResultRows(const query::ResultTableModel& table);

// Writes "trova: message" to standard error.
void printError(const QString& message);

}  // namespace trovara::cli
