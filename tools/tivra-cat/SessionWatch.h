#pragma once

#include "Incidents.h"
#include "Options.h"
#include "Wakeup.h"

#include "common/StartFailure.h"

#include <tivra.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tivra_cat {

/// The receiver of everything but messages: keeps what happened to the session, the user and the counters
/// until the main thread asks.
class SessionWatch : public tivra::SessionEventHandler,
                     public tivra::UserEventHandler,
                     public tivra::StatisticsEventHandler {
public:
    static constexpr std::size_t kCounters = tivra::StatisticsEvent::PEAK_NET_OUT_MSGS_SEC + 1;
    using Statistics = std::array<std::uint64_t, kCounters>;

    struct Settings {
        bool forMachines = false; ///< whether machineStatistics are kept
        tivra::StatisticsText::Labels labels;
        bool losesHubsWhenFull = true; ///< a full receive queue costs the connection
    };

    SessionWatch(const Wakeup& wakeup, Incidents& incidents, Settings settings)
        : m_wakeup(wakeup), m_incidents(incidents), m_settings(std::move(settings)) {}

    void onSessionEvent(const tivra::SessionEvent& event) override;
    void onUserEvent(const tivra::UserEvent& event) override;
    void onStatisticsEvent(const tivra::StatisticsEvent& event) override;

    /// The last refusal, if any login was refused and none accepted since.
    [[nodiscard]] std::optional<tivra_tools::LoginRefusal> loginRefusal() const;
    /// What the user should hear, since the last call.
    [[nodiscard]] std::vector<std::string> takeNotices();
    /// The counters as of the last statistics event; zeros before the first.
    [[nodiscard]] Statistics statistics() const;
    /// Whether something may have been dropped that no statistics event has counted yet.
    [[nodiscard]] bool mayLackDrops() const;
    /// The same for machines, whole lines in a form other than Text; empty before the first.
    [[nodiscard]] std::string machineStatistics(StatisticsForm form) const;

private:
    using State = tivra::SessionEvent::Types;

    void notice(std::string text);
    // With the mutex held:
    void enter(State state, std::string text);
    void noteSource(const tivra::SessionEvent& event);
    void noteDepth(bool isDeep);

    const Wakeup& m_wakeup;
    Incidents& m_incidents;
    const Settings m_settings;
    mutable std::mutex m_mutex; ///< guards all below
    std::optional<tivra_tools::LoginRefusal> m_refusal;
    std::vector<std::string> m_notices;
    Statistics m_statistics{};
    std::string m_json;
    std::string m_openMetrics;
    bool m_wasEstablished = false;
    State m_state = tivra::SessionEvent::TIVRA_SESSION_UNAVAILABLE;
    bool m_isDeep = false; ///< the last that was heard of a receive queue is that it is above its threshold
    bool m_mayLackDrops = false;
};

} // namespace tivra_cat
