#include "index/live/qt_live_query.h"

#include "index/live/qt_dispatcher.h"

namespace trovara::index {

QtLiveQuery::QtLiveQuery(QuerySource& source, LiveQueryOptions options, QObject* parent)
    : QObject(parent)
    , m_query(std::make_unique<LiveQuery>(source, std::make_shared<QtDispatcher>(this), std::move(options)))
{
    m_query->onProgress = [this] { emit progress(); };
    m_query->onFinished = [this] { emit finished(); };
    m_query->onUpdate = [this](const LiveQuery::Update& update) { emit updated(update); };
}

QtLiveQuery::~QtLiveQuery()
{
    // Stopped before the signals go: no notification reaches a half-destroyed object.
    m_query->stop();
}

}  // namespace trovara::index
