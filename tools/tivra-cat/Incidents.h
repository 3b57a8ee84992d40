#pragma once

#include "Recordings.h"
#include "Wakeup.h"

#include <cstdint>
#include <mutex>
#include <string>

namespace tivra_cat {

/// What has gone wrong with the data of a run: interruptions, holes, bytes that were dropped. Each is counted
/// and noted in the capture, whatever thread learns of it.
class Incidents {
public:
    struct Totals {
        std::uint64_t interruptions = 0;         ///< losses of a hub, as the session reports them
        std::uint64_t resets = 0;                ///< of these, because the receive queue was full
        std::uint64_t sourceLosses = 0;          ///< sources that were lost with a hub
        std::uint64_t holes = 0;                 ///< in sequences
        std::uint64_t missing = 0;               ///< messages that the holes lack
        std::uint64_t restarts = 0;              ///< of sequences, which are no loss
        std::uint64_t queueBytes = 0;            ///< that the receive queues dropped
        std::uint64_t hubBytes = 0;              ///< that the hubs dropped
        std::uint64_t endedStandingRequests = 0; ///< that a hub took, and refused when asked again

        /// Whether something is, or may be, missing.
        [[nodiscard]] bool isIncomplete() const {
            return interruptions + sourceLosses + holes + queueBytes + hubBytes + endedStandingRequests > 0;
        }
    };

    Incidents(const Wakeup& wakeup, Recordings& recordings) : m_wakeup(wakeup), m_recordings(recordings) {}

    // @thread user
    void hubLost(const std::string& text, bool isReset);
    void hubsRestored(const std::string& text);
    void sourceLost(int source);
    void sourceRestored(int source);
    /// Between two numbers of a source's sequence that should follow each other.
    void hole(int source, std::int64_t after, std::int64_t before, std::uint64_t missing);
    void restart(int source, std::int64_t after, std::int64_t before);
    /// The counts of dropped bytes as of now. They lack those of hubs that aren't ready, so that they may
    /// fall in between.
    void dropped(std::uint64_t queueBytes, std::uint64_t hubBytes);
    void standingRequestEnded(const std::string& target);

    /// The run ends on purpose: what comes of that is no incident. @thread application
    void endCounting();

    [[nodiscard]] Totals totals() const;
    /// The first that made the data incomplete, for people; empty for none.
    [[nodiscard]] std::string first() const;

private:
    void note(const std::string& kind, tivra_capture::Note::Values values);
    /// Notes what a count has grown by.
    void raise(std::uint64_t& total, std::uint64_t now, const char* at);
    void mark(const std::string& text);

    const Wakeup& m_wakeup;
    Recordings& m_recordings;
    mutable std::mutex m_mutex; ///< guards all below
    Totals m_totals;
    std::string m_first;
    bool m_isCounting = true;
};

} // namespace tivra_cat
