#pragma once

#include <atomic>

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HandshakeContext;

/// The sources that the user may see, which the first hub asks for once its siblings have listed theirs.
class EntitlementsStep {
public:
    explicit EntitlementsStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    /// False when the system source is not among them: the user can't be served.
    [[nodiscard]] bool take(const KVNAPI::Message& msg);

    /// The siblings are waited for, from now on.
    void awaitSiblings();
    /// @thread any
    [[nodiscard]] bool waitsForSiblings() const { return m_siblings.load() != Siblings::NotAwaited; }
    /// The siblings are ready; tick() goes on. @thread any
    void siblingsAreReady();
    void tick();
    /// The connection is closed.
    void forget() { m_siblings = Siblings::NotAwaited; }

private:
    enum class Siblings { NotAwaited, Awaited, Ready };

    void takeAnswer(const KVNAPI::Message& msg);

    HandshakeContext& m_context;
    std::atomic<Siblings> m_siblings{Siblings::NotAwaited};
};

} // namespace tivra_internal
