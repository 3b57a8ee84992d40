#pragma once

#include <string>
#include <vector>

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HandshakeContext;

/// The first look-up of a port, whose answer says what the group around a hub looks like: the hub alone, an
/// aggregating one, or one of several.
class GroupStep {
public:
    explicit GroupStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    /// False when the answer can't be used.
    [[nodiscard]] bool take(const KVNAPI::Message& msg);

private:
    void takeAnswer(const KVNAPI::Message& msg);
    void suspendForUnknownAddress(const std::string& response);
    void joinGroup();

    HandshakeContext& m_context;
    std::vector<std::string> m_otherHubs; ///< the other members of an n-way group, host and port
};

} // namespace tivra_internal
