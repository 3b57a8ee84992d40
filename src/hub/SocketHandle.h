#pragma once

#include <unistd.h>

#include <atomic>

namespace tivra_internal {

/// Owns one socket descriptor, -1 for none. One thread changes it; any thread may read it.
class SocketHandle {
public:
    SocketHandle() = default;
    ~SocketHandle() { close(); }
    SocketHandle(const SocketHandle&) = delete;
    SocketHandle& operator=(const SocketHandle&) = delete;

    [[nodiscard]] int get() const noexcept { return m_descriptor.load(std::memory_order_relaxed); }

    /// Takes the descriptor over and closes the one held before.
    void assign(int descriptor) noexcept {
        close();
        m_descriptor.store(descriptor, std::memory_order_relaxed);
    }

    void close() noexcept {
        const int descriptor = m_descriptor.exchange(-1, std::memory_order_relaxed);
        if (descriptor >= 0)
            ::close(descriptor);
    }

private:
    std::atomic<int> m_descriptor{-1};
};

} // namespace tivra_internal
