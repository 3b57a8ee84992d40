#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <tp/Mutex.h>

namespace tivra_python {

/// Tells an event loop what has come to its end: a descriptor that can be read, and numbers that say what it
/// was. Each loop has one. In a child that the process forks it is of no use.
class Notifier {
public:
    /// @throws tivra::Error (System)
    Notifier();
    ~Notifier();
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    /// @thread any, without the interpreter's lock
    void post(std::uint64_t token) TP_EXCLUDES(m_mutex);
    /// What has been posted since the last call; the descriptor can't be read any more. @thread the loop's
    [[nodiscard]] std::vector<std::uint64_t> drain() TP_EXCLUDES(m_mutex);
    [[nodiscard]] int descriptor() const noexcept { return m_descriptor; }

private:
    int m_descriptor;
    tp::Mutex m_mutex;
    std::vector<std::uint64_t> m_tokens TP_GUARDED_BY(m_mutex);
};

/// The notifier as Python has it. What the library keeps is no object of Python: its last owner would need
/// the interpreter's lock to drop it, on the thread that delivers.
struct NotifierHolder {
    std::shared_ptr<Notifier> notifier = std::make_shared<Notifier>();
};

} // namespace tivra_python
