#include "widgets/startup_trace.h"

#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"
#include "widgets/application.h"

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <cstdio>

namespace trovara::widgets {

namespace {
long long nowNanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}
}  // namespace

bool StartupTrace::isEnabled()
{
    return !qEnvironmentVariableIsEmpty("TROVARA_TRACE_SINCE");
}

StartupTrace::StartupTrace(Application& application, QObject* parent)
    : QObject(parent)
    , m_application(application)
{
    if (!isEnabled()) {
        return;
    }
    m_since = qEnvironmentVariable("TROVARA_TRACE_SINCE").toLongLong();
    connect(&application, &Application::windowCreated, this, [this](DocumentWindow* window) {
        if (m_watching) {
            return;
        }
        m_watching = true;
        QTimer::singleShot(0, this, [this] { mark("window-shown"); });
        query::MetadataQueryController* controller = window->document().metadataQueryController();
        connect(controller->results(), &query::ResultTableModel::arrangedObjectsChanged, this, [this, controller] {
            if (!m_firstResults && controller->results()->rowCount() > 0) {
                m_firstResults = true;
                // After the views have had their turn to paint.
                QTimer::singleShot(0, this, [this, controller] {
                    mark("first-results", controller->results()->rowCount());
                });
            }
        });
        // "complete" once gathering ends, whether or not anything was found:
        // a search with no results must not leave the trace waiting.
        connect(controller, &query::MetadataQueryController::stateChanged, this,
                [this, controller](query::MetadataQueryController::State state) {
                    if (state == query::MetadataQueryController::State::Gathering) {
                        m_gathering = true;
                        return;
                    }
                    const bool done = m_gathering || state == query::MetadataQueryController::State::Live;
                    if (!done || m_complete) {
                        return;
                    }
                    m_complete = true;
                    mark("complete", static_cast<long long>(controller->resultArray().size()));
                    if (qEnvironmentVariable("TROVARA_TRACE_QUIT") == QLatin1String("1")) {
                        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
                    }
                });
    });
    connect(&application, &Application::indexOpened, this, [this] { mark("index-open"); });
}

void StartupTrace::mark(const char* event, long long results) const
{
    const double milliseconds = (nowNanoseconds() - m_since) / 1e6;
    if (results >= 0) {
        std::fprintf(stderr, "trovara-trace %s %.1f %lld\n", event, milliseconds, results);
    } else {
        std::fprintf(stderr, "trovara-trace %s %.1f\n", event, milliseconds);
    }
    std::fflush(stderr);
}

}  // namespace trovara::widgets
