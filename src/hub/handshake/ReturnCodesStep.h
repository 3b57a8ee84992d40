#pragma once

#include <cstdint>

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HandshakeContext;

/// The texts of the return codes, which the first hub client of a session loads for all.
class ReturnCodesStep {
public:
    explicit ReturnCodesStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    void take(const KVNAPI::Message& msg);

private:
    void addReturnCode(int64_t code, const KVNAPI::Message& msg);

    HandshakeContext& m_context;
};

} // namespace tivra_internal
