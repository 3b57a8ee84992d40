#include "reader/SubscriptionState.h"

#include <fmt/format.h>

#include <exception>
#include <iterator>

namespace tivra_bus {

namespace {

thread_local int t_handlers = 0; ///< that this thread is inside of

} // namespace

SubscriptionState::SubscriptionState(const std::vector<tivra::Instrument>& instruments,
                                     tivra::BusHandlers handlers, std::vector<std::string> fields,
                                     ReaderCounters& counters, OnFailure onFailure)
    : m_handlers(std::move(handlers))
    , m_fields(std::make_move_iterator(fields.begin()), std::make_move_iterator(fields.end()))
    , m_counters(counters)
    , m_onFailure(std::move(onFailure)) {
    for (const tivra::Instrument& instrument : instruments)
        m_states.emplace(instrument, tivra::DataState::Pending);
}

bool SubscriptionState::isInHandler() {
    return t_handlers > 0;
}

template<class Call>
void SubscriptionState::call(const char* name, const Call& handler) {
    {
        const tp::MutexLock lock(m_mutex);
        if (m_isClosed)
            return;
        m_isCalling = true;
    }
    ++t_handlers;
    std::string failure;
    try {
        handler();
    } catch (const std::exception& error) {
        failure = error.what();
    } catch (...) {
        failure = "an exception that is no std::exception";
    }
    --t_handlers;
    if (!failure.empty())
        m_onFailure(fmt::format("{} of a subscription has thrown: {}", name, failure));
    const tp::MutexLock lock(m_mutex);
    m_isCalling = false;
    m_returned.notifyAll();
}

void SubscriptionState::update(tivra::Update::Kind kind, const tivra::BusUpdate& update) {
    const auto hand = [this](const tivra::BusUpdate& wanted) {
        m_updates.fetch_add(1, std::memory_order_relaxed);
        m_counters.updates.fetch_add(1, std::memory_order_relaxed);
        if (m_handlers.onUpdate)
            call("onUpdate", [&] { m_handlers.onUpdate(wanted); });
    };
    if (m_fields.empty()) {
        hand(update);
        return;
    }
    std::vector<tivra::BusUpdate::Entry> entries;
    for (const tivra::BusUpdate::Entry& entry : update)
        if (m_fields.find(entry.first) != m_fields.end())
            entries.push_back(entry);
    // An image without them says that they have no values.
    if (entries.empty() && kind == tivra::Update::Kind::Update)
        m_withoutField.fetch_add(1, std::memory_order_relaxed);
    else
        hand({kind, update.instrument(), update.epoch(), update.number(), update.writtenAt(), entries});
}

void SubscriptionState::changed(const tivra::Instrument& instrument, const tivra::StateChange& change) {
    {
        const tp::MutexLock lock(m_mutex);
        m_states[instrument] = change.to;
    }
    if (m_handlers.onState)
        call("onState", [&] { m_handlers.onState(instrument, change); });
}

void SubscriptionState::gap(const tivra::Instrument& instrument, const tivra::BusGap& gap) {
    m_gaps.fetch_add(1, std::memory_order_relaxed);
    m_counters.gaps.fetch_add(1, std::memory_order_relaxed);
    m_missing.fetch_add(gap.messages.value_or(0), std::memory_order_relaxed);
    if (m_handlers.onGap)
        call("onGap", [&] { m_handlers.onGap(instrument, gap); });
}

std::vector<tivra::Instrument> SubscriptionState::instruments() const {
    const tp::MutexLock lock(m_mutex);
    std::vector<tivra::Instrument> instruments;
    instruments.reserve(m_states.size());
    for (const auto& [instrument, state] : m_states)
        instruments.push_back(instrument);
    return instruments;
}

std::optional<tivra::DataState> SubscriptionState::state(const tivra::Instrument& instrument) const {
    const tp::MutexLock lock(m_mutex);
    const auto found = m_states.find(instrument);
    if (found == m_states.end())
        return std::nullopt;
    return m_isClosed ? tivra::DataState::Closed : found->second;
}

tivra::BusSubscriptionStatistics SubscriptionState::statistics() const {
    tivra::BusSubscriptionStatistics statistics;
    statistics.updates = m_updates.load(std::memory_order_relaxed);
    statistics.gaps = m_gaps.load(std::memory_order_relaxed);
    statistics.missing = m_missing.load(std::memory_order_relaxed);
    statistics.withoutField = m_withoutField.load(std::memory_order_relaxed);
    const tp::MutexLock lock(m_mutex);
    statistics.symbols = m_isClosed ? 0 : m_states.size();
    for (const auto& [instrument, state] : m_states)
        statistics.live += !m_isClosed && state == tivra::DataState::Live ? 1U : 0U;
    return statistics;
}

void SubscriptionState::close() {
    const tp::MutexLock lock(m_mutex);
    // A reader that is gone has closed this before.
    if (!m_isClosed.exchange(true))
        m_counters.closings.fetch_add(1);
    while (m_isCalling && !isInHandler())
        m_returned.wait(m_mutex);
}

} // namespace tivra_bus
