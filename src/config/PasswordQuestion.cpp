#include "config/PasswordQuestion.h"

#include <utility>

namespace tivra_internal {

PasswordQuestion::PasswordQuestion(std::string hub, std::function<void()> wake)
    : m_hub(std::move(hub)), m_wake(std::move(wake)) {}

void PasswordQuestion::drop() {
    m_isDropped = true;
    const tp::MutexLock lock(m_mutex);
    m_wake = nullptr;
    m_password = tivra::Password();
}

tivra::Password PasswordQuestion::take() {
    const tp::MutexLock lock(m_mutex);
    return std::move(m_password);
}

std::string PasswordQuestion::fault() const {
    const tp::MutexLock lock(m_mutex);
    return m_fault;
}

void PasswordQuestion::answer(tivra::Password password, std::string fault) {
    const tp::MutexLock lock(m_mutex);
    if (isDropped())
        return;
    m_password = std::move(password);
    m_fault = std::move(fault);
    m_isAnswered.store(true, std::memory_order_release);
    // Under the mutex: whoever is woken drops the question before it goes.
    if (m_wake)
        m_wake();
}

} // namespace tivra_internal
