// trova find -live: a live query on the command line.
#include "interrupt.h"
#include "live_source.h"
#include "services.h"

#include "daemon/query_source.h"
#include "index/live/qt_live_query.h"

#include <QCoreApplication>

#include <cstdio>

namespace trovara::cli {

namespace {

class LinePrinter {
public:
    explicit LinePrinter(bool nul)
        : m_end(nul ? '\0' : '\n')
    {
    }
    void line(const char* prefix, const std::string& path)
    {
        std::fputs(prefix, stdout);
        std::fwrite(path.data(), 1, path.size(), stdout);
        std::fputc(m_end, stdout);
    }
    void flush() { std::fflush(stdout); }

private:
    char m_end;
};

const std::string& pathOf(const std::shared_ptr<void>& result)
{
    return static_cast<const index::ItemRef*>(result.get())->path();
}

}  // namespace

std::unique_ptr<index::QuerySource> openLiveSource(const GlobalOptions& global, bool followChanges)
{
    daemon::QuerySourceOptions options;
    options.notice = [](const std::string& message) { printError(QString::fromStdString(message)); };
    options.followChanges = followChanges;
    index::Expected<std::unique_ptr<index::QuerySource>> source =
        daemon::openQuerySource(global.indexDirectory, indexServices(), options);
    if (!source) {
        printError(QString::fromStdString(source.error().message));
        return nullptr;
    }
    return std::move(source.value());
}

int findLive(const GlobalOptions& global, const std::string& query, const std::vector<std::string>& scopes, bool nul)
{
    std::unique_ptr<index::QuerySource> source = openLiveSource(global, true);
    if (!source) {
        return 1;
    }
    index::LiveQueryOptions options;
    options.query = query;
    options.scopes = scopes;
    index::QtLiveQuery live(*source, options);
    LinePrinter out(nul);
    std::size_t printed = 0;
    // During gathering the results only grow: print what is new.
    auto printNew = [&] {
        const index::LiveQuery& q = live.query();
        for (; printed < q.resultCount(); ++printed) {
            out.line("", q.itemAt(printed).path());
        }
        out.flush();
    };
    QObject::connect(&live, &index::QtLiveQuery::progress, printNew);
    QObject::connect(&live, &index::QtLiveQuery::finished, printNew);
    QObject::connect(&live, &index::QtLiveQuery::updated, [&](const index::LiveQuery::Update& update) {
        for (const auto& result : update.removed) {
            out.line("- ", pathOf(result));
        }
        for (const auto& result : update.added) {
            out.line("+ ", pathOf(result));
        }
        for (const auto& result : update.changed) {
            out.line("~ ", pathOf(result));
        }
        out.flush();
    });

    // Interrupted (Ctrl-C, or terminated): the loop ends, the query stops and
    // the index is left consistent.
    QuitOnInterrupt interrupt;
    if (!interrupt.isReady()) {
        return 1;
    }

    if (index::Expected<void> started = live.query().execute(); !started) {
        printError(QString::fromStdString(
            (started.error().kind == index::Failure::Kind::InvalidQuery ? "invalid query: " : "")
            + started.error().message));
        return 1;
    }
    const int status = QCoreApplication::exec();
    live.query().stop();
    return status;
}

}  // namespace trovara::cli
