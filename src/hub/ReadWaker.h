#pragma once

#include <tp/EventBase.h>

#include "hub/SocketHandle.h"

namespace tp {
class EventReactor;
} // namespace tp

namespace tivra_internal {

class HubClient;

/// Ends the hold of a client's reads as soon as its queue has room, which the tick alone would notice late.
/// @thread hub, but for wake(). It owns a descriptor from the first hold on.
class ReadWaker final : public tp::EventBase {
public:
    explicit ReadWaker(HubClient& client) : m_client(client) {}
    ~ReadWaker() override = default;
    ReadWaker(const ReadWaker&) = delete;
    ReadWaker& operator=(const ReadWaker&) = delete;

    /// From here on wake() is heard; without a descriptor to be had, it isn't.
    void listen(tp::EventReactor& reactor);
    void leave(tp::EventReactor& reactor);
    /// @thread any
    void wake() noexcept;

    void readableEvent(double curtime) override;

private:
    HubClient& m_client;
    SocketHandle m_event;
};

} // namespace tivra_internal
