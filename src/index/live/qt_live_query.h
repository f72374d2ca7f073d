// A live query for Qt code: its notifications as signals, delivered through
// the event loop of the thread the object lives in.
//
// Thread safety: like any QObject, use it on its own thread.
#pragma once

#include "index/live/live_query.h"

#include <QObject>

#include <memory>

namespace trovara::index {

class QtLiveQuery final : public QObject {
    Q_OBJECT

public:
    QtLiveQuery(QuerySource& source, LiveQueryOptions options, QObject* parent = nullptr);
    ~QtLiveQuery() override;

    LiveQuery& query() { return *m_query; }
    const LiveQuery& query() const { return *m_query; }

signals:
    void progress();
    void finished();
    void updated(const trovara::index::LiveQuery::Update& update);

private:
    std::unique_ptr<LiveQuery> m_query;
};

}  // namespace trovara::index
