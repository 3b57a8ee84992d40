#pragma once

#include "OutputQueue.h"
#include "PlaybackTape.h"
#include "Responder.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace tivra_sim {

/// Plays a tape into the output of those who subscribed its symbols, no faster than they read. Used by the
/// hub's thread alone.
class PlaybackEngine {
public:
    PlaybackEngine(HubState& state, const Playback& playback) : m_state(state), m_playback(playback) {}

    /// The tape must outlive the model's entries, which point into it. Its symbols become known.
    void load(std::shared_ptr<const PlaybackTape> tape);
    [[nodiscard]] bool isLoaded() const { return m_tape != nullptr; }

    /// Starts from the beginning.
    void start(Clock::time_point now);
    void stop() { m_isRunning = false; }
    /// Starts when the subscriptions that the configuration waits for stand, once.
    void startIfWanted(std::size_t subscriptions, Clock::time_point now);

    /// Plays what is due at `now` and has room. Returns when it wants to be called again: now, at a time, or
    /// not before an output has drained.
    enum class Next { Idle, Now, AtTime, WhenDrained };
    Next step(Clock::time_point now);
    [[nodiscard]] Clock::time_point resumeAt() const { return m_resumeAt; }
    /// Whether the next event could be sent, after Next::WhenDrained.
    [[nodiscard]] bool hasRoom() const;

    [[nodiscard]] bool isRunning() const { return m_isRunning; }
    [[nodiscard]] bool isPlayedOut() const { return m_isPlayedOut; }
    [[nodiscard]] std::uint64_t eventsPlayed() const { return m_eventsPlayed; }
    /// What was left out for clients that read too slowly.
    struct Dropped {
        std::uint64_t messages = 0;
        std::uint64_t bytes = 0;
        std::size_t clients = 0;
    };
    [[nodiscard]] const Dropped& dropped() const { return m_dropped; }
    /// Seconds from the start to the end, or to `now`.
    [[nodiscard]] double secondsPlayed(Clock::time_point now) const;
    /// Seconds that an event was played after its time, at the most.
    [[nodiscard]] double lateness() const { return m_lateness; }
    [[nodiscard]] std::uint64_t leftOut() const { return isLoaded() ? m_tape->leftOut() : 0; }

private:
    [[nodiscard]] bool hasRoom(const SymbolEntry& entry) const;
    void send(SymbolEntry& entry, const TapeEvent& event);
    void drop(Connection& subscriber, const TapeEvent& event);
    [[nodiscard]] bool isFull(Connection& subscriber) const;
    [[nodiscard]] bool goRound(Clock::time_point now);
    [[nodiscard]] Clock::time_point dueTime(const TapeEvent& event) const;

    HubState& m_state;
    const Playback& m_playback;
    std::shared_ptr<const PlaybackTape> m_tape;
    /// The model's entry of each symbol of the tape.
    std::vector<SymbolEntry*> m_entries;

    bool m_isRunning = false;
    bool m_isPlayedOut = false;
    bool m_hasStarted = false;
    std::size_t m_next = 0;
    unsigned m_round = 0;
    Clock::time_point m_roundStart{};
    Clock::time_point m_resumeAt{};
    Clock::time_point m_start{};
    Clock::time_point m_end{};
    double m_lateness = 0.0;
    Dropped m_dropped;
    std::uint64_t m_eventsPlayed = 0;
};

} // namespace tivra_sim
