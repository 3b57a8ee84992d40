#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <feed/ConnectionEvent.h>
#include <feed/Error.h>
#include <tp/Mutex.h>

#include "hub/HubWatcher.h"

namespace tivra_internal {

/// How the connection to each hub of a feed stands, and what its last failure was. @thread any
class HubStates final : public HubWatcher {
public:
    using Tell = std::function<void(const tivra::ConnectionEvent&)>;

    /// @param statusName  the name of a hub's code
    /// @param tell        hears of each change, on the hub's thread
    HubStates(std::function<std::string(int)> statusName, Tell tell)
        : m_statusName(std::move(statusName)), m_tell(std::move(tell)) {}

    /// The hubs that the application has named.
    void expect(const std::vector<std::string>& hubs) TP_EXCLUDES(m_mutex);
    void hubChanged(const HubReport& report) override TP_EXCLUDES(m_mutex);

    [[nodiscard]] std::vector<tivra::HubStatus> all() const TP_EXCLUDES(m_mutex);
    /// What keeps the feed from being ready: hub, phase, errno and code of the failure that is the latest
    /// among the hubs that aren't, or how far one of them is that has had none. Nothing when all are ready.
    [[nodiscard]] std::optional<tivra::Error::Details> obstacle() const TP_EXCLUDES(m_mutex);

private:
    struct Entry {
        tivra::HubStatus status;
        tivra::Error::Phase phase = tivra::Error::Phase::Connect; ///< that it is in, or was in last
        tivra::Error::Phase failurePhase = tivra::Error::Phase::Connect;
        tivra::ConnectionEvent failure{}; ///< the last one since it was ready
        unsigned long failureNumber = 0;  ///< of all; 0: none
    };

    [[nodiscard]] static bool isForgottenBefore(const Entry& a, const Entry& b);
    [[nodiscard]] Entry& entryOf(const std::string& hub) TP_REQUIRES(m_mutex);

    const std::function<std::string(int)> m_statusName;
    const Tell m_tell;
    mutable tp::Mutex m_mutex; ///< guards what follows
    std::vector<Entry> m_entries TP_GUARDED_BY(m_mutex);
    unsigned long m_failures TP_GUARDED_BY(m_mutex) = 0;
};

} // namespace tivra_internal
