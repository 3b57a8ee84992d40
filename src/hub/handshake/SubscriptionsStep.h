#pragma once

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HandshakeContext;

/// The two subscriptions that every connection holds: to the heartbeat and to the status of the hub.
class SubscriptionsStep {
public:
    explicit SubscriptionsStep(HandshakeContext& context) : m_context(context) {}

    int askHeartbeat();
    void takeHeartbeat(const KVNAPI::Message& msg);
    int askHubStatus();
    void takeHubStatus(const KVNAPI::Message& msg);

private:
    void countRefusal(long& refusals);

    HandshakeContext& m_context;
};

} // namespace tivra_internal
