#ifndef TIVRA_CAT_SESSIONWATCH_H
#define TIVRA_CAT_SESSIONWATCH_H

#include "Wakeup.h"

#include <tivra.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tivra_cat {

/// A login that a hub refused.
struct LoginRefusal {
    int code = 0;
    std::string name;
};

/// The receiver of everything but messages: keeps what happened to the session, the user and the counters
/// until the main thread asks.
class SessionWatch : public tivra::SessionEventHandler,
                     public tivra::UserEventHandler,
                     public tivra::StatisticsEventHandler {
public:
    static constexpr std::size_t COUNTERS = tivra::StatisticsEvent::PEAK_NET_OUT_MSGS_SEC + 1;
    using Statistics = std::array<std::uint64_t, COUNTERS>;

    explicit SessionWatch(const Wakeup& wakeup) : m_wakeup(wakeup) {}

    void onSessionEvent(const tivra::SessionEvent& event) override;
    void onUserEvent(const tivra::UserEvent& event) override;
    void onStatisticsEvent(const tivra::StatisticsEvent& event) override;

    /// The last refusal, if any login was refused and none accepted since.
    [[nodiscard]] std::optional<LoginRefusal> loginRefusal() const;
    /// What the user should hear, since the last call.
    [[nodiscard]] std::vector<std::string> takeNotices();
    /// The counters as of the last statistics event; zeros before the first.
    [[nodiscard]] Statistics statistics() const;

private:
    void notice(std::string text);

    const Wakeup& m_wakeup;
    mutable std::mutex m_mutex; ///< guards all below
    std::optional<LoginRefusal> m_refusal;
    std::vector<std::string> m_notices;
    Statistics m_statistics{};
    bool m_wasEstablished = false;
};

} // namespace tivra_cat

#endif
