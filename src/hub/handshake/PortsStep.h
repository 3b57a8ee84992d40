#pragma once

#include <cstdint>
#include <string>

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HandshakeContext;

/// The look-up of the hub for each source of the user that no hub of the group lists: one source after the
/// other, the answer to each request asks for the next.
class PortsStep {
public:
    explicit PortsStep(HandshakeContext& context) : m_context(context) {}

    /// True when a request went out, false when no source is left to ask about.
    [[nodiscard]] bool ask();
    /// True when the next step is to be chosen.
    [[nodiscard]] bool take(const KVNAPI::Message& msg);

private:
    void takeAnswer(const KVNAPI::Message& msg);
    [[nodiscard]] std::string memberOf(int src, const std::string& host, uint16_t port) const;
    [[nodiscard]] bool assignToMember(int src, const std::string& host);

    HandshakeContext& m_context;
};

} // namespace tivra_internal
