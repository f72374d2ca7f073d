// The first start: an index that knows no folder yet gets the home folder.
//
// When the index runs in this process (no daemon) and has no folders, the
// home folder is added on the engine's thread. Names, sizes, dates and kinds
// are searchable as soon as the crawl is done (running searches are told
// like for any change); contents are imported in the background after that.
// Progress comes here on the main thread, for a progress bar in the windows.
//
// A daemon's index is never touched: its folders are the person's choice
// (`trova index add`). Main thread only.
#pragma once

#include <QObject>
#include <QString>

#include <atomic>
#include <memory>

namespace trovara::index {
class QuerySource;
}

namespace trovara::app {

class HomeIndexer final : public QObject {
    Q_OBJECT

public:
    explicit HomeIndexer(QObject* parent = nullptr);
    // Cancels a crawl under way; the engine must be gone first (its thread
    // reports here).
    ~HomeIndexer() override;

    // Starts indexing `folder` when `source` is an index engine in this
    // process with no folders. True when it started.
    bool startIfNeeded(index::QuerySource& source, const QString& folder);
    bool isRunning() const { return m_running; }
    // Stops the crawl soon (the application quits); `finished` still comes.
    void cancel();
    QString folder() const { return m_folder; }

signals:
    // Entries crawled so far (the crawl does not know its total).
    void progressed(qulonglong entries);
    // The crawl is done: every name is searchable; contents follow.
    void finished(const QString& problem);

private:
    struct Shared;
    std::shared_ptr<Shared> m_shared;
    QString m_folder;
    bool m_running = false;
};

}  // namespace trovara::app
