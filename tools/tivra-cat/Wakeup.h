#pragma once

namespace tivra_cat {

/// A descriptor by which any thread makes the main thread's poll return. Never blocks.
class Wakeup {
public:
    Wakeup();
    ~Wakeup();
    Wakeup(const Wakeup&) = delete;
    Wakeup& operator=(const Wakeup&) = delete;

    void notify() const noexcept;
    /// Makes the descriptor quiet again.
    void clear() const noexcept;
    [[nodiscard]] int fd() const noexcept { return m_fd; }

private:
    int m_fd;
};

} // namespace tivra_cat
