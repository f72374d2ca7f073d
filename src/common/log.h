// The application log: one line per message, "file:line message", to the
// system log (the journal picks it up from syslog). Switched off when the
// environment variable MLogOn is exactly "NO".
//
// Thread safety: write() may be called from any thread; setSink() is meant
// for start-up and tests.
#pragma once

#include <QString>

#include <functional>

namespace trovara::log {

using Sink = std::function<void(const QString& line)>;

// Formats "%s:%d %s" with the base name of file and passes it to the sink.
void write(const char* file, int line, const QString& message);

// Replaces where lines go (tests capture them); an empty sink restores syslog.
void setSink(Sink sink);

// Whether logging is on; read from the environment on every call so that a
// test can switch it.
bool enabled();

}  // namespace trovara::log

#define TLOG(message) ::trovara::log::write(__FILE__, __LINE__, (message))
