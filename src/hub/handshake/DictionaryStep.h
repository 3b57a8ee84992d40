#pragma once

#include "dictionary/TokenRows.h"

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HandshakeContext;

/// The download of a dictionary, into the session's cache or, for a version that is this hub's alone, beside
/// it.
class DictionaryStep {
public:
    explicit DictionaryStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    void take(const KVNAPI::Message& msg);
    /// Enters the rows of the hub's version in its dictionary.
    void load();
    /// The connection is closed; a download that this cuts short is taken up again.
    void forget();

private:
    void end(const KVNAPI::Message& msg);

    HandshakeContext& m_context;
    TokenRows tmpTokenMap; ///< rows of a dictionary version that is this hub's alone
};

} // namespace tivra_internal
