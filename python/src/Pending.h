#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include <feed/Result.h>
#include <tp/Mutex.h>

#include "Notifier.h"

namespace tivra_python {

/// A result that the library brings on a thread of its own, for a reader that waits for it or has its event
/// loop told. @thread any, without the interpreter's lock
template<class T>
class Pending {
public:
    /// The first result counts.
    void complete(tivra::Result<T> result) TP_EXCLUDES(m_mutex) {
        tp::MutexLock lock(m_mutex);
        if (m_isReady)
            return;
        m_result.emplace(std::move(result));
        m_isReady = true;
        m_condition.notifyAll();
        const std::shared_ptr<Notifier> notifier = std::move(m_notifier);
        const std::uint64_t token = m_token;
        lock.unlock();
        if (notifier)
            notifier->post(token);
    }

    [[nodiscard]] bool isReady() TP_EXCLUDES(m_mutex) {
        const tp::MutexLock lock(m_mutex);
        return m_isReady;
    }

    bool waitUntil(std::chrono::steady_clock::time_point deadline) TP_EXCLUDES(m_mutex) {
        const tp::MutexLock lock(m_mutex);
        while (!m_isReady)
            if (!m_condition.waitUntil(m_mutex, deadline))
                break;
        return m_isReady;
    }

    /// Has the notifier told once it is there. @return whether it is, and nothing will be told
    bool notify(std::shared_ptr<Notifier> notifier, std::uint64_t token) TP_EXCLUDES(m_mutex) {
        const tp::MutexLock lock(m_mutex);
        if (m_isReady)
            return true;
        m_notifier = std::move(notifier);
        m_token = token;
        return false;
    }

    /// Once, when it is there.
    [[nodiscard]] std::optional<tivra::Result<T>> take() TP_EXCLUDES(m_mutex) {
        const tp::MutexLock lock(m_mutex);
        return std::exchange(m_result, std::nullopt);
    }

private:
    tp::Mutex m_mutex;
    tp::ConditionVariable m_condition;
    bool m_isReady TP_GUARDED_BY(m_mutex) = false;
    std::optional<tivra::Result<T>> m_result TP_GUARDED_BY(m_mutex);
    std::shared_ptr<Notifier> m_notifier TP_GUARDED_BY(m_mutex);
    std::uint64_t m_token TP_GUARDED_BY(m_mutex) = 0;
};

} // namespace tivra_python
