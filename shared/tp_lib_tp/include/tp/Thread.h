// How the library starts its threads.
#pragma once

#include <functional>
#include <string>
#include <thread>

namespace tp {

/// Names the calling thread for debuggers and `top -H`; the kernel keeps the first 15 characters.
void setThreadName(const std::string& name) noexcept;

/// True on a thread that the library started, where an application's callbacks run.
[[nodiscard]] bool onLibraryThread() noexcept;

/// Marks the calling thread as one of the library's for a scope. tp::Thread does it for every body.
class LibraryThreadMark {
public:
    LibraryThreadMark() noexcept;
    ~LibraryThreadMark();
    LibraryThreadMark(const LibraryThreadMark&) = delete;
    LibraryThreadMark& operator=(const LibraryThreadMark&) = delete;

private:
    bool m_before;
};

/// What is done on each new thread before its work, with its name: for affinity or priority, say. What it
/// throws is logged.
using ThreadStartHook = std::function<void(const std::string& name)>;

/// The hook of all threads of the process that are made from now on, unless they are given another; an empty
/// one for none. @thread any
void setThreadStartHook(ThreadStartHook hook);
/// The one for threads that this thread makes.
[[nodiscard]] ThreadStartHook threadStartHook();

/// Within its scope threads that this thread makes get another hook than the process's, and so do those that
/// they make. An empty one changes nothing.
class ThreadStartHookScope {
public:
    explicit ThreadStartHookScope(ThreadStartHook hook) noexcept;
    ~ThreadStartHookScope();
    ThreadStartHookScope(const ThreadStartHookScope&) = delete;
    ThreadStartHookScope& operator=(const ThreadStartHookScope&) = delete;

private:
    const ThreadStartHook m_hook;
    const ThreadStartHook* const m_before;
};

/// One thread of the library: started with all signals blocked, so that the host's handlers run on the
/// host's own threads, named, and marked as the library's. Owned by the thread that joins it; the body
/// must have been told to end before join() or the destructor.
class Thread {
public:
    Thread() noexcept = default;
    /// Throws std::system_error when the system refuses a thread; the caller's signal mask is restored.
    Thread(std::string name, std::function<void()> body, ThreadStartHook hook = threadStartHook());
    /// Joins. On the thread itself, which can't join itself, it lets the thread go instead.
    ~Thread();

    Thread(Thread&&) noexcept = default;
    Thread& operator=(Thread&& other) noexcept;

    void join();
    /// The system's name for it until join().
    [[nodiscard]] std::thread::id getId() const noexcept { return m_thread.get_id(); }
    /// True when the calling thread is this one.
    [[nodiscard]] bool isCurrent() const noexcept { return m_thread.get_id() == std::this_thread::get_id(); }

private:
    std::thread m_thread;
};

} // namespace tp
