// Timing marks for the start-up benchmark (bench/window-bench): with
// TROVARA_TRACE_SINCE set to the wall-clock time in nanoseconds at which the
// program was started, the first window's milestones are written to
// standard error as "trovara-trace EVENT MILLISECONDS [RESULTS]":
// window-shown, index-open, first-results (the first results on screen),
// complete (gathering done, also when nothing was found). With TROVARA_TRACE_QUIT=1 the application
// quits after "complete". Without the variable nothing is traced.
#pragma once

#include <QObject>

namespace trovara::widgets {

class Application;

class StartupTrace final : public QObject {
    Q_OBJECT

public:
    // Does nothing unless TROVARA_TRACE_SINCE is set.
    explicit StartupTrace(Application& application, QObject* parent = nullptr);
    static bool isEnabled();

private:
    void mark(const char* event, long long results = -1) const;
    void watchWindow();

    Application& m_application;
    long long m_since = 0;
    bool m_watching = false;
    bool m_firstResults = false;
    bool m_gathering = false;
    bool m_complete = false;
};

}  // namespace trovara::widgets
