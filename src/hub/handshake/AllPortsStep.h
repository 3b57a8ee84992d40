#pragma once

#include <cstdint>
#include <set>

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HandshakeContext;

/// The ports of a hub group behind a connection manager, which hands out the hubs for them.
class AllPortsStep {
public:
    explicit AllPortsStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    void take(const KVNAPI::Message& msg);

private:
    void createHubsOfManager(const std::set<uint16_t>& ports);

    HandshakeContext& m_context;
};

} // namespace tivra_internal
