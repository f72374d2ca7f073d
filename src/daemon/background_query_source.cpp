#include "daemon/background_query_source.h"

namespace trovara::daemon {

BackgroundQuerySource::BackgroundQuerySource(std::string indexDirectory, index::IndexServices services,
                                             QuerySourceOptions options, std::function<void()> ready)
    : m_services(services)
{
    m_opener = std::thread([this, directory = std::move(indexDirectory), services = std::move(services),
                            options = std::move(options), ready = std::move(ready)] {
        index::Expected<std::unique_ptr<index::QuerySource>> opened = openQuerySource(directory, services, options);
        if (opened) {
            adopt(std::move(opened.value()));
        } else {
            std::lock_guard lock(m_mutex);
            m_failure = opened.error();
            m_settled = true;
        }
        if (ready) {
            ready();
        }
    });
}

BackgroundQuerySource::BackgroundQuerySource(std::unique_ptr<index::QuerySource> source)
    : m_services(source->indexServices())
{
    adopt(std::move(source));
}

BackgroundQuerySource::~BackgroundQuerySource()
{
    if (m_opener.joinable()) {
        m_opener.join();
    }
    std::lock_guard lock(m_mutex);
    if (m_source) {
        for (auto& [id, subscription] : m_subscriptions) {
            if (subscription.realId) {
                m_source->unsubscribeFromChanges(subscription.realId);
            }
        }
    }
}

void BackgroundQuerySource::adopt(std::unique_ptr<index::QuerySource> source)
{
    std::lock_guard lock(m_mutex);
    m_source = std::move(source);
    m_ready.store(true);
    m_settled = true;
    if (m_subscriptions.empty()) {
        return;
    }
    index::IndexChanges everything;
    everything.everything = true;
    everything.view = m_source->currentView();
    for (auto& [id, subscription] : m_subscriptions) {
        subscription.realId = m_source->subscribeToChanges(subscription.subscriber);
        subscription.subscriber(everything);
    }
}

bool BackgroundQuerySource::isSettled() const
{
    std::lock_guard lock(m_mutex);
    return m_settled;
}

std::optional<index::Failure> BackgroundQuerySource::failure() const
{
    std::lock_guard lock(m_mutex);
    return m_failure;
}

std::shared_ptr<const index::IndexView> BackgroundQuerySource::currentView() const
{
    index::QuerySource* open = source();
    return open ? open->currentView() : nullptr;
}

std::vector<std::string> BackgroundQuerySource::indexedRoots() const
{
    index::QuerySource* open = source();
    return open ? open->indexedRoots() : std::vector<std::string>{};
}

const index::IndexServices& BackgroundQuerySource::indexServices() const
{
    index::QuerySource* open = source();
    return open ? open->indexServices() : m_services;
}

int BackgroundQuerySource::subscribeToChanges(std::function<void(const index::IndexChanges&)> subscriber)
{
    std::lock_guard lock(m_mutex);
    const int id = m_nextId++;
    Subscription& subscription = m_subscriptions[id];
    subscription.subscriber = std::move(subscriber);
    if (m_source) {
        subscription.realId = m_source->subscribeToChanges(subscription.subscriber);
    }
    return id;
}

void BackgroundQuerySource::unsubscribeFromChanges(int id)
{
    std::lock_guard lock(m_mutex);
    auto found = m_subscriptions.find(id);
    if (found == m_subscriptions.end()) {
        return;
    }
    if (found->second.realId && m_source) {
        m_source->unsubscribeFromChanges(found->second.realId);
    }
    m_subscriptions.erase(found);
}

}  // namespace trovara::daemon
