// What a process that forks means for the library.
#pragma once

#include <tp/Mutex.h>

#include <atomic>

namespace tp {

namespace process {
/// The forks from the process that has loaded the library down to this one.
extern std::atomic<unsigned> s_forks;
} // namespace process

/// Remembers in which process it was made. What a forked child inherits has no threads there, and a thread
/// that isn't there may hold any of its mutexes: the child must leave it alone, but for its memory.
/// Any thread.
class ProcessMark {
public:
    ProcessMark() noexcept;

    /// This process was forked off from the one that made the mark, or from a child of that.
    [[nodiscard]] bool isForeign() const noexcept {
        return m_forks != process::s_forks.load(std::memory_order_relaxed);
    }
    /// The same, for an operation that fails then; the first of these in a process is logged.
    [[nodiscard]] bool refuses(const char* operation) const noexcept {
        return isForeign() && report(operation);
    }

private:
    /// Always true.
    static bool report(const char* operation) noexcept;

    unsigned m_forks;
};

/// Base of what belongs to the process that made it.
class OfOneProcess {
public:
    [[nodiscard]] const ProcessMark& process() const noexcept { return m_process; }

protected:
    OfOneProcess() = default;
    ~OfOneProcess() = default;

private:
    ProcessMark m_process;
};

/// A mutex that is the process's and not an object's. A fork takes it first, so that the child finds it free
/// and what it guards whole. Ranks of such mutexes differ, none is held around a fork or a line of the log,
/// and each lives as long as the process.
class ProcessMutex : public Mutex {
public:
    /// Not from within a fork, of course. There may be eight of them.
    explicit ProcessMutex(LockRank rank) noexcept;
};

} // namespace tp
