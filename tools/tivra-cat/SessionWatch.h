#pragma once

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

    /// @param forMachines  whether machineStatistics are kept
    SessionWatch(const Wakeup& wakeup, bool forMachines, tivra::StatisticsText::Labels labels)
        : m_wakeup(wakeup), m_forMachines(forMachines), m_labels(std::move(labels)) {}

    void onSessionEvent(const tivra::SessionEvent& event) override;
    void onUserEvent(const tivra::UserEvent& event) override;
    void onStatisticsEvent(const tivra::StatisticsEvent& event) override;

    /// The last refusal, if any login was refused and none accepted since.
    [[nodiscard]] std::optional<tivra_tools::LoginRefusal> loginRefusal() const;
    /// What the user should hear, since the last call.
    [[nodiscard]] std::vector<std::string> takeNotices();
    /// The counters as of the last statistics event; zeros before the first.
    [[nodiscard]] Statistics statistics() const;
    /// The same for machines, whole lines in a form other than Text; empty before the first.
    [[nodiscard]] std::string machineStatistics(StatisticsForm form) const;

private:
    void notice(std::string text);

    const Wakeup& m_wakeup;
    const bool m_forMachines;
    const tivra::StatisticsText::Labels m_labels;
    mutable std::mutex m_mutex; ///< guards all below
    std::optional<tivra_tools::LoginRefusal> m_refusal;
    std::vector<std::string> m_notices;
    Statistics m_statistics{};
    std::string m_json;
    std::string m_openMetrics;
    bool m_wasEstablished = false;
};

} // namespace tivra_cat
