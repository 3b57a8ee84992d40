#pragma once

#include <atomic>
#include <functional>
#include <string>

#include <feed/Password.h>
#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

/// One question for a password and its answer, between the connection that waits for it and the thread that
/// calls the application.
class PasswordQuestion {
public:
    /// @param hub   who is to get the password
    /// @param wake  called when the answer has come, unless the question has been dropped. @thread login
    PasswordQuestion(std::string hub, std::function<void()> wake);
    PasswordQuestion(const PasswordQuestion&) = delete;
    PasswordQuestion& operator=(const PasswordQuestion&) = delete;

    [[nodiscard]] const std::string& hub() const noexcept { return m_hub; }

    // --- whoever has asked ---
    [[nodiscard]] bool isAnswered() const noexcept { return m_isAnswered.load(std::memory_order_acquire); }
    /// Nobody waits for the answer any more; it isn't told of, and is overwritten.
    void drop() TP_EXCLUDES(m_mutex);
    /// The answer, once it has come; it isn't kept. Empty when there is none.
    [[nodiscard]] tivra::Password take() TP_EXCLUDES(m_mutex);
    /// Why there is none. Empty when there is one.
    [[nodiscard]] std::string fault() const TP_EXCLUDES(m_mutex);

    // --- @thread login ---
    [[nodiscard]] bool isDropped() const noexcept { return m_isDropped.load(std::memory_order_relaxed); }
    void answer(tivra::Password password, std::string fault) TP_EXCLUDES(m_mutex);

private:
    const std::string m_hub;
    std::atomic<bool> m_isAnswered{false};
    std::atomic<bool> m_isDropped{false};

    mutable tp::Mutex m_mutex{kLockPasswordQuestion};
    std::function<void()> m_wake TP_GUARDED_BY(m_mutex);
    tivra::Password m_password TP_GUARDED_BY(m_mutex);
    std::string m_fault TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
