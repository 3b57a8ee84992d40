#include "PlaybackEngine.h"

#include <algorithm>
#include <utility>

namespace tivra_sim {

namespace {

/// Events played before the sockets get their turn; about a quarter of a megabyte.
constexpr std::size_t kBatch = 2048;

} // namespace

void PlaybackEngine::load(std::shared_ptr<const PlaybackTape> tape) {
    m_tape = std::move(tape);
    m_entries.clear();
    for (const TapeSymbol& symbol : m_tape->symbols()) {
        if (m_playback.bodies)
            m_state.model.grant(symbol.source);
        m_entries.push_back(&m_state.model.findOrAdd(symbol.source, symbol.symbol));
    }
}

void PlaybackEngine::start(Clock::time_point now) {
    if (!isLoaded())
        return;
    m_hasStarted = true;
    m_isRunning = !m_tape->events().empty();
    m_isPlayedOut = !m_isRunning;
    m_next = 0;
    m_round = 0;
    m_roundStart = now;
}

void PlaybackEngine::startIfWanted(std::size_t subscriptions, Clock::time_point now) {
    const std::size_t wanted = m_playback.startWhenSubscriptions;
    if (!m_hasStarted && wanted > 0 && subscriptions >= wanted)
        start(now);
}

Clock::time_point PlaybackEngine::dueTime(const TapeEvent& event) const {
    // A capture's times are whatever its file says; a hundred years are as good as never.
    constexpr double NEVER = 1e3 * 86400 * 36525;
    const double milliseconds = std::clamp(
        (event.milliseconds - m_tape->events().front().milliseconds) / m_playback.factor, -NEVER, NEVER);
    return m_roundStart + std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double, std::milli>(milliseconds));
}

PlaybackEngine::Next PlaybackEngine::step(Clock::time_point now) {
    if (!m_isRunning)
        return Next::Idle;
    const std::vector<TapeEvent>& events = m_tape->events();
    const std::size_t stop = std::min(events.size(), m_next + kBatch);
    for (; m_next < stop; ++m_next) {
        const TapeEvent& event = events[m_next];
        if (m_playback.factor > 0.0 && dueTime(event) > now) {
            m_resumeAt = dueTime(event);
            return Next::AtTime;
        }
        SymbolEntry& entry = *m_entries[event.symbol];
        if (!hasRoom(entry))
            return Next::WhenDrained;
        if (event.isForeign)
            HubModel::store(entry, event.body());
        else
            HubModel::note(entry, event);
        send(entry, event);
        ++m_eventsPlayed;
    }
    if (m_next < events.size())
        return Next::Now;
    if (++m_round < m_playback.repeat) {
        for (SymbolEntry* entry : m_entries)
            HubModel::settle(*entry);
        m_next = 0;
        m_roundStart = now;
        return Next::Now;
    }
    m_isRunning = false;
    m_isPlayedOut = true;
    return Next::Idle;
}

bool PlaybackEngine::hasRoom() const {
    return m_isRunning && m_next < m_tape->events().size() &&
           hasRoom(*m_entries[m_tape->events()[m_next].symbol]);
}

bool PlaybackEngine::hasRoom(const SymbolEntry& entry) const {
    const std::size_t limit = m_state.model.config().outputLimit;
    return std::all_of(entry.subscribers.begin(), entry.subscribers.end(), [limit](Connection* subscriber) {
        return limit == 0 || subscriber->output().pending() < limit;
    });
}

void PlaybackEngine::send(SymbolEntry& entry, const TapeEvent& event) {
    for (Connection* subscriber : entry.subscribers)
        subscriber->update(entry, event.body(), event.frame(), FrameKind::Playback);
}

} // namespace tivra_sim
