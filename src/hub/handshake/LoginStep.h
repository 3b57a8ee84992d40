#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <utility>

#include "hub/RetryPace.h"

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HandshakeContext;

/// The login: what the hub learns about user and program, and when a hub that has refused it may be dialled
/// again.
class LoginStep {
public:
    /// `chance` gives numbers from 0 up to 1, which keep clients apart that were refused together.
    LoginStep(HandshakeContext& context, std::function<double()> chance)
        : m_context(context), m_loginPace(std::move(chance)) {}

    /// Result 1: the login request is out; -1: it isn't.
    int ask();
    void take(const KVNAPI::Message& msg);
    /// The connection is closed.
    void forget() { m_logged_in = false; }

    /// @thread any
    [[nodiscard]] bool isLoggedIn() const { return m_logged_in.load(std::memory_order_relaxed); }
    /// False while a hub that has refused the login is to be left alone.
    [[nodiscard]] bool mayDial() const;

private:
    void refuse(const std::string& reason);

    HandshakeContext& m_context;
    RetryPace m_loginPace;
    std::atomic<bool> m_logged_in{false};
};

} // namespace tivra_internal
