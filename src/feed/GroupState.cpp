#include "feed/GroupState.h"

#include <utility>

#include "feed/FeedItem.h"
#include "feed/FeedRegistry.h"
#include "feed/InstrumentCheck.h"

namespace tivra_internal {

using tivra::DataState;
using tivra::Error;
using tivra::Instrument;

namespace {

[[nodiscard]] Error groupClosedError() {
    return Error({Error::Code::Closed, Error::Phase::Request, "the group is closed", "", "", 0, "", 0});
}

} // namespace

GroupState::GroupState(std::shared_ptr<FeedRegistry> registry, tivra::SubscriptionHandlers handlers)
    : m_registry(std::move(registry))
    , m_handlers(std::make_shared<const tivra::SubscriptionHandlers>(std::move(handlers))) {}

std::size_t GroupState::add(const std::vector<Instrument>& instruments) {
    for (const Instrument& instrument : instruments)
        checkInstrument(instrument, "subscribe");
    std::vector<One> added;
    try {
        for (const Instrument& instrument : instruments)
            if (One one = subscribe(instrument))
                added.push_back(std::move(one));
    } catch (...) {
        undo(added);
        throw;
    }
    return added.size();
}

/// Null when it is there already. Nothing is called with the mutex held, since callbacks may use the group.
GroupState::One GroupState::subscribe(const Instrument& instrument) {
    SubscriptionState::Handlers handlers;
    {
        const tp::MutexLock lock(m_mutex);
        if (m_subscriptions.find(instrument) != m_subscriptions.end())
            return nullptr;
        handlers = m_handlers;
    }
    if (handlers == nullptr)
        throw groupClosedError();
    One one = m_registry->subscribe(ItemKind::Symbol, instrument, std::move(handlers));
    bool isClosed = false;
    {
        const tp::MutexLock lock(m_mutex);
        isClosed = m_handlers == nullptr;
        if (!isClosed && m_subscriptions.insert(one).second)
            return one;
    }
    one->close();
    if (isClosed)
        throw groupClosedError();
    return nullptr; // another thread has added it meanwhile
}

void GroupState::undo(const std::vector<One>& added) {
    {
        const tp::MutexLock lock(m_mutex);
        for (const One& one : added)
            m_subscriptions.erase(one);
    }
    for (const One& one : added)
        one->close();
}

std::size_t GroupState::remove(const std::vector<Instrument>& instruments) {
    std::vector<One> removed;
    {
        const tp::MutexLock lock(m_mutex);
        for (const Instrument& instrument : instruments)
            if (const auto found = m_subscriptions.find(instrument); found != m_subscriptions.end()) {
                removed.push_back(*found);
                m_subscriptions.erase(found);
            }
    }
    for (const One& one : removed)
        one->close();
    return removed.size();
}

std::size_t GroupState::size() const {
    const tp::MutexLock lock(m_mutex);
    return m_subscriptions.size();
}

std::shared_ptr<SubscriptionState> GroupState::find(const Instrument& instrument) const {
    const tp::MutexLock lock(m_mutex);
    const auto found = m_subscriptions.find(instrument);
    return found != m_subscriptions.end() ? *found : nullptr;
}

void GroupState::forEach(const std::function<void(SubscriptionState&)>& call) const {
    for (const One& one : copy())
        call(*one);
}

std::vector<GroupState::One> GroupState::copy() const {
    const tp::MutexLock lock(m_mutex);
    return {m_subscriptions.begin(), m_subscriptions.end()};
}

tivra::GroupStatistics GroupState::statistics() const {
    tivra::GroupStatistics figures;
    const tp::MutexLock lock(m_mutex);
    figures.subscriptions = m_subscriptions.size();
    for (const One& one : m_subscriptions) {
        switch (one->state()) {
        case DataState::Pending:
            ++figures.pending;
            break;
        case DataState::Live:
            ++figures.live;
            break;
        case DataState::Stale:
            ++figures.stale;
            break;
        case DataState::Recovering:
            ++figures.recovering;
            break;
        case DataState::Refused:
            ++figures.refused;
            break;
        case DataState::Closed: // with its feed
            break;
        }
        const tivra::SubscriptionStatistics each = one->statistics();
        figures.updates += each.updates;
        figures.gaps += each.gaps;
    }
    return figures;
}

void GroupState::close() {
    if (m_registry->process().isForeign())
        return; // a thread that isn't in this process may hold the mutex
    Set all;
    SubscriptionState::Handlers handlers; // what they hold goes without the mutex
    {
        const tp::MutexLock lock(m_mutex);
        std::swap(all, m_subscriptions);
        std::swap(handlers, m_handlers);
    }
    for (const One& one : all)
        one->close();
}

} // namespace tivra_internal

namespace tivra {

SubscriptionGroup::SubscriptionGroup(std::shared_ptr<tivra_internal::GroupState> state) noexcept
    : m_state(std::move(state)) {}

SubscriptionGroup::SubscriptionGroup(SubscriptionGroup&&) noexcept = default;

SubscriptionGroup& SubscriptionGroup::operator=(SubscriptionGroup&& other) noexcept {
    if (this != &other) {
        close();
        m_state = std::move(other.m_state);
    }
    return *this;
}

SubscriptionGroup::~SubscriptionGroup() {
    close();
}

std::size_t SubscriptionGroup::add(const std::vector<Instrument>& instruments) {
    if (m_state == nullptr)
        throw Error({Error::Code::Closed, Error::Phase::Request, "this object is no group of a feed",
                     "take it from Feed::makeGroup", "", 0, "", 0});
    return m_state->add(instruments);
}

std::size_t SubscriptionGroup::remove(const std::vector<Instrument>& instruments) {
    return m_state != nullptr ? m_state->remove(instruments) : 0;
}

std::size_t SubscriptionGroup::size() const {
    return m_state != nullptr ? m_state->size() : 0;
}

bool SubscriptionGroup::contains(const Instrument& instrument) const {
    return m_state != nullptr && m_state->find(instrument) != nullptr;
}

std::optional<DataState> SubscriptionGroup::state(const Instrument& instrument) const {
    const auto one = m_state != nullptr ? m_state->find(instrument) : nullptr;
    return one != nullptr ? std::optional<DataState>(one->state()) : std::nullopt;
}

std::optional<Error> SubscriptionGroup::error(const Instrument& instrument) const {
    const auto one = m_state != nullptr ? m_state->find(instrument) : nullptr;
    return one != nullptr ? one->error() : std::nullopt;
}

void SubscriptionGroup::forEach(const std::function<void(const SubscriptionView&)>& call) const {
    if (m_state != nullptr)
        m_state->forEach([&call](tivra_internal::SubscriptionState& one) { call(one.view()); });
}

GroupStatistics SubscriptionGroup::statistics() const {
    return m_state != nullptr ? m_state->statistics() : GroupStatistics();
}

void SubscriptionGroup::close() {
    if (m_state != nullptr)
        m_state->close();
}

} // namespace tivra
