// Uncaught exceptions: a programming error that escapes every handler is
// logged with its message and the stack where it ended the program, then
// the program ends as it would have (std::abort, so the system's crash
// handler still gets the core). Crashes by signal are left to the system's
// crash handler.
#pragma once

#include <exception>

namespace trovara::app {

// Installs the terminate handler. Safe to call more than once.
void installUncaughtExceptionHandler();

// Whether the exception is logged; writes it and the current stack to the
// log and answers true.
bool shouldLogException(std::exception_ptr exception);

}  // namespace trovara::app
