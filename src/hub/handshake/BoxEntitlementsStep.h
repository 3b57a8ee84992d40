#pragma once

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HandshakeContext;

/// The sources that a hub itself carries.
class BoxEntitlementsStep {
public:
    explicit BoxEntitlementsStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    /// False when the system source is not among them: the hub is of no use.
    [[nodiscard]] bool take(const KVNAPI::Message& msg);

private:
    void takeAnswer(const KVNAPI::Message& msg);

    HandshakeContext& m_context;
};

} // namespace tivra_internal
