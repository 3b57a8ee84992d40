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
    m_roundStart = m_start = now;
    m_lateness = 0.0;
}

double PlaybackEngine::secondsPlayed(Clock::time_point now) const {
    if (!m_hasStarted)
        return 0.0;
    return std::chrono::duration<double>((m_isPlayedOut ? m_end : now) - m_start).count();
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
        if (m_playback.factor > 0.0) {
            const Clock::time_point due = dueTime(event);
            if (due > now) {
                m_resumeAt = due;
                return Next::AtTime;
            }
            m_lateness = std::max(m_lateness, std::chrono::duration<double>(now - due).count());
        }
        SymbolEntry& entry = *m_entries[event.symbol];
        if (!m_playback.dropsForSlow && !hasRoom(entry))
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
    if (goRound(now))
        return Next::Now;
    m_isRunning = false;
    m_isPlayedOut = true;
    m_end = now;
    return Next::Idle;
}

/// A load goes on where its round should have ended, so that its rate holds.
bool PlaybackEngine::goRound(Clock::time_point now) {
    if (m_playback.repeat != 0 && ++m_round >= m_playback.repeat)
        return false;
    for (SymbolEntry* entry : m_entries)
        HubModel::settle(*entry);
    m_next = 0;
    const bool hasPace = m_playback.factor > 0.0 && m_playback.load.symbols > 0;
    if (hasPace)
        m_roundStart += std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
            static_cast<double>(m_tape->events().size()) / m_playback.load.rate / m_playback.factor));
    else
        m_roundStart = now;
    return true;
}

bool PlaybackEngine::hasRoom() const {
    return m_isRunning && m_next < m_tape->events().size() &&
           hasRoom(*m_entries[m_tape->events()[m_next].symbol]);
}

bool PlaybackEngine::hasRoom(const SymbolEntry& entry) const {
    return std::none_of(entry.subscribers.begin(), entry.subscribers.end(),
                        [this](Connection* subscriber) { return isFull(*subscriber); });
}

bool PlaybackEngine::isFull(Connection& subscriber) const {
    const std::size_t limit = m_state.model.config().outputLimit;
    return limit != 0 && subscriber.output().pending() >= limit;
}

void PlaybackEngine::send(SymbolEntry& entry, const TapeEvent& event) {
    for (Connection* subscriber : entry.subscribers) {
        if (m_playback.dropsForSlow && isFull(*subscriber))
            drop(*subscriber, event);
        else
            subscriber->update(entry, event.body(), event.frame(), FrameKind::Playback);
    }
}

void PlaybackEngine::drop(Connection& subscriber, const TapeEvent& event) {
    m_dropped.clients += subscriber.droppedBytes == 0 ? 1U : 0U;
    subscriber.droppedBytes += event.length;
    ++m_dropped.messages;
    m_dropped.bytes += event.length;
}

} // namespace tivra_sim
