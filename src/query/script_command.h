// The scripting command being carried out, so that the objects it reaches
// can report a failure as its error number (as script commands do).
//
// A ScriptCommand is current on its thread from construction to
// destruction; commands nest. Meant for the main thread.
#pragma once

#include <QString>

namespace trovara::query {

// A script tried to change something that cannot be changed.
inline constexpr int kScriptWriteDeniedError = -10003;

class ScriptCommand {
public:
    explicit ScriptCommand(QString name);
    ~ScriptCommand();
    ScriptCommand(const ScriptCommand&) = delete;
    ScriptCommand& operator=(const ScriptCommand&) = delete;

    // The innermost command being carried out on this thread, or nullptr.
    static ScriptCommand* currentCommand();

    const QString& name() const { return m_name; }
    // 0 while nothing failed.
    int scriptErrorNumber() const { return m_errorNumber; }
    void setScriptErrorNumber(int number) { m_errorNumber = number; }

private:
    QString m_name;
    int m_errorNumber = 0;
    ScriptCommand* m_outer;
};

}  // namespace trovara::query
