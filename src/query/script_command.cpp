#include "query/script_command.h"

namespace trovara::query {

namespace {

thread_local ScriptCommand* g_current = nullptr;

}  // namespace

ScriptCommand::ScriptCommand(QString name)
    : m_name(std::move(name))
    , m_outer(g_current)
{
    g_current = this;
}

ScriptCommand::~ScriptCommand()
{
    g_current = m_outer;
}

ScriptCommand* ScriptCommand::currentCommand()
{
    return g_current;
}

}  // namespace trovara::query
