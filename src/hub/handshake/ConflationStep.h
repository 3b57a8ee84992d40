#pragma once

#include "hub/HubVersion.h"

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HandshakeContext;

/// What a hub is asked for about the conflation of its data: interval and type.
class ConflationStep {
public:
    explicit ConflationStep(HandshakeContext& context) : m_context(context) {}

    int askInterval();
    void takeInterval();
    int askType(HubVersion version);
    void takeType(const KVNAPI::Message& msg);

private:
    HandshakeContext& m_context;
};

} // namespace tivra_internal
