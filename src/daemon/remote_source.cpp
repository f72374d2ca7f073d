#include "daemon/remote_source.h"

#include <future>

namespace trovara::daemon {

namespace {

using index::Expected;
using index::Failure;

constexpr const char* kSnapshot = "/catalogue.bin";

}  // namespace

RemoteIndexSource::RemoteIndexSource(std::string indexDirectory, index::IndexServices services)
    : m_directory(std::move(indexDirectory))
    , m_services(std::move(services))
{
}

Expected<std::unique_ptr<RemoteIndexSource>> RemoteIndexSource::open(const std::string& indexDirectory,
                                                                     index::IndexServices services)
{
    std::unique_ptr<RemoteIndexSource> source(new RemoteIndexSource(indexDirectory, std::move(services)));
    if (Expected<void> connected = source->connect(); !connected) {
        return connected.error();
    }
    source->m_reconnector = std::thread([s = source.get()] { s->reconnectLoop(); });
    return source;
}

RemoteIndexSource::~RemoteIndexSource()
{
    {
        std::lock_guard lock(m_reconnectMutex);
        m_stopping = true;
    }
    m_reconnectWake.notify_all();
    if (m_reconnector.joinable()) {
        m_reconnector.join();
    }
    m_connection.reset();
}

void RemoteIndexSource::setNoticeHandler(std::function<void(const std::string&)> handler)
{
    std::lock_guard lock(m_subscribersMutex);
    m_notice = std::move(handler);
}

bool RemoteIndexSource::isConnected() const
{
    std::lock_guard lock(m_reconnectMutex);
    return !m_disconnected;
}

Expected<void> RemoteIndexSource::connect()
{
    Expected<std::unique_ptr<Connection>> opened = Connection::open(m_directory);
    if (!opened) {
        return opened.error();
    }
    Connection* connection = opened.value().get();
    connection->setEventHandler(
        [this, connection](ChangesEvent&& event) { onEvent(*connection, std::move(event)); });
    connection->setClosedHandler([this] { onClosed(); });
    // The snapshot is mapped on the reader thread, before any change event
    // after the subscription is looked at.
    auto mapped = std::make_shared<std::promise<Expected<void>>>();
    std::future<Expected<void>> done = mapped->get_future();
    Request subscribe;
    subscribe.type = MessageType::Subscribe;
    connection->send(subscribe, [this, mapped](Expected<Reply> reply) {
        if (!reply) {
            mapped->set_value(reply.error());
            return;
        }
        if (reply->failure) {
            mapped->set_value(*reply->failure);
            return;
        }
        Expected<std::shared_ptr<const index::Catalogue>> snapshot = mapSnapshot(reply->generation);
        if (!snapshot) {
            mapped->set_value(snapshot.error());
            return;
        }
        setView(std::make_shared<index::IndexView>(snapshot.value()));
        mapped->set_value(Expected<void>());
    });
    Expected<void> result = done.get();
    if (!result) {
        return result.error();
    }
    m_connection = std::move(opened.value());
    return {};
}

Expected<std::shared_ptr<const index::Catalogue>> RemoteIndexSource::mapSnapshot(std::int64_t generation)
{
    Failure last{Failure::Kind::Io, "no snapshot"};
    // The daemon wrote it before it answered; a later one may have replaced
    // it meanwhile, which is as good (the changes after it come again).
    for (int attempt = 0; attempt < 5; ++attempt) {
        Expected<std::shared_ptr<const index::Catalogue>> catalogue = index::Catalogue::open(m_directory + kSnapshot);
        if (catalogue && catalogue.value()->generation() >= generation) {
            return catalogue;
        }
        last = catalogue ? Failure{Failure::Kind::Corrupt, "the index snapshot is older than the daemon says"}
                         : catalogue.error();
    }
    return last;
}

void RemoteIndexSource::setView(std::shared_ptr<const index::IndexView> view)
{
    std::vector<std::string> roots;
    const index::Catalogue& catalogue = *view->base();
    for (index::ItemIndex root : catalogue.roots()) {
        roots.push_back(catalogue.path(root));
    }
    std::lock_guard lock(m_viewMutex);
    m_view = std::move(view);
    m_roots = std::move(roots);
}

std::shared_ptr<const index::IndexView> RemoteIndexSource::currentView() const
{
    std::lock_guard lock(m_viewMutex);
    return m_view;
}

std::vector<std::string> RemoteIndexSource::indexedRoots() const
{
    std::lock_guard lock(m_viewMutex);
    return m_roots;
}

int RemoteIndexSource::subscribeToChanges(std::function<void(const index::IndexChanges&)> subscriber)
{
    std::lock_guard lock(m_subscribersMutex);
    const int id = m_nextSubscriber++;
    m_subscribers.emplace(id, std::move(subscriber));
    return id;
}

void RemoteIndexSource::unsubscribeFromChanges(int id)
{
    std::lock_guard lock(m_subscribersMutex);
    m_subscribers.erase(id);
}

void RemoteIndexSource::publish(const index::IndexChanges& changes)
{
    std::vector<std::function<void(const index::IndexChanges&)>> subscribers;
    {
        std::lock_guard lock(m_subscribersMutex);
        for (const auto& [id, subscriber] : m_subscribers) {
            subscribers.push_back(subscriber);
        }
    }
    for (const auto& subscriber : subscribers) {
        subscriber(changes);
    }
}

void RemoteIndexSource::notice(const std::string& message)
{
    std::function<void(const std::string&)> handler;
    {
        std::lock_guard lock(m_subscribersMutex);
        handler = m_notice;
    }
    if (handler) {
        handler(message);
    }
}

void RemoteIndexSource::onEvent(Connection& connection, ChangesEvent&& event)
{
    if (event.everything) {
        Expected<std::shared_ptr<const index::Catalogue>> snapshot = mapSnapshot(event.generation);
        if (!snapshot) {
            notice("cannot read the index snapshot: " + snapshot.error().message);
            return;
        }
        index::IndexChanges changes;
        changes.everything = true;
        changes.view = std::make_shared<index::IndexView>(snapshot.value());
        setView(changes.view);
        publish(changes);
        return;
    }
    std::shared_ptr<index::IndexView> working = currentView()->copy();
    index::IndexChanges changes;
    for (const std::string& path : event.removed) {
        std::vector<std::string> gone = working->remove(path);
        changes.removed.insert(changes.removed.end(), gone.begin(), gone.end());
    }
    for (ItemRecord& item : event.upserted) {
        const index::TypeInfo type = m_services.types(item.details.mimeType);
        auto facts = std::make_shared<index::FileFacts>(item.path, std::move(item.info), std::move(item.details), type,
                                                        item.lastUsed);
        facts->setNodeCount(item.nodeCount);
        working->upsert(std::move(facts));
    }
    for (const ItemRecord& item : event.upserted) {
        if (std::optional<index::ItemRef> ref = working->item(item.path)) {
            changes.upserted.push_back(std::move(*ref));
        }
    }
    changes.view = working;
    setView(working);
    publish(changes);

    if (working->fresh().size() > m_refreshThreshold && !m_refreshing) {
        // Many items kept apart from the snapshot: ask for a fresh one. It
        // holds exactly what this view holds (the reply comes after the
        // changes before it), so searches see no difference.
        m_refreshing = true;
        Request checkpoint;
        checkpoint.type = MessageType::Checkpoint;
        connection.send(checkpoint, [this](Expected<Reply> reply) {
            m_refreshing = false;
            if (reply && !reply->failure) {
                if (Expected<std::shared_ptr<const index::Catalogue>> snapshot = mapSnapshot(reply->generation)) {
                    setView(std::make_shared<index::IndexView>(snapshot.value()));
                }
            }
        });
    }
}

void RemoteIndexSource::onClosed()
{
    {
        std::lock_guard lock(m_reconnectMutex);
        if (m_stopping) {
            return;
        }
        m_disconnected = true;
    }
    m_reconnectWake.notify_all();
    notice("the daemon has gone away; results stay as they are until it is back");
}

void RemoteIndexSource::reconnectLoop()
{
    std::unique_lock lock(m_reconnectMutex);
    for (;;) {
        m_reconnectWake.wait(lock, [&] { return m_stopping || m_disconnected; });
        if (m_stopping) {
            return;
        }
        lock.unlock();
        const bool connected = connect().ok();
        lock.lock();
        if (connected) {
            m_disconnected = false;
            lock.unlock();
            notice("the daemon is back; results are live again");
            index::IndexChanges changes;
            changes.everything = true;
            changes.view = currentView();
            publish(changes);
            lock.lock();
        } else {
            m_reconnectWake.wait_for(lock, std::chrono::milliseconds(250), [&] { return m_stopping; });
        }
    }
}

}  // namespace trovara::daemon
