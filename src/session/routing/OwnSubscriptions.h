#pragma once

#include <atomic>

namespace tivra_internal {

class RequestInternal;

/// The library subscribes two symbols of the system source for itself, which the application may subscribe
/// too. @thread master, unless a line says otherwise
class OwnSubscriptions {
public:
    /// For a subscribe or an unsubscribe of the application. The latter leaves a mark on the request when a
    /// fresh subscribe must follow. A request for all symbols of all sources is made one that the hub
    /// refuses.
    void apply(RequestInternal& request);
    /// The application itself subscribes to the heartbeat symbol. @thread any
    [[nodiscard]] bool isHBSubscribed() const { return m_HBSubscribed; }
    void reset() { m_HBSubscribed = false; }

private:
    void applySubscribeRule(RequestInternal& request);
    void applyUnsubscribeRule(RequestInternal& request);

    std::atomic<bool> m_HBSubscribed{false};
};

} // namespace tivra_internal
