#include <tp/Thread.h>

#include <tp/Process.h>
#include <tp/SignalsBlocked.h>
#include <tp/callOut.h>

#include <pthread.h>
#include <utility>

namespace tp {

namespace {

thread_local bool t_libraryThread = false;
thread_local const ThreadStartHook* t_hook = nullptr; ///< of the scope that this thread is in

// Never destroyed: a thread may start while the host's static destructors run.
struct SharedHook {
    static SharedHook& instance() {
        static auto* const shared = new SharedHook;
        return *shared;
    }

    ProcessMutex mutex{LockRank{1090, "the thread start hook"}};
    ThreadStartHook hook TP_GUARDED_BY(mutex);
};

std::thread startWithSignalsBlocked(std::string name, std::function<void()> body, ThreadStartHook hook) {
    const SignalsBlocked blocked;
    ThreadStartHook inherited = t_hook != nullptr ? *t_hook : ThreadStartHook();
    return std::thread([name = std::move(name), body = std::move(body), hook = std::move(hook),
                        inherited = std::move(inherited)] {
        const LibraryThreadMark mark;
        const ThreadStartHookScope scope(inherited);
        setThreadName(name);
        if (hook)
            callOut("thread start hook", [&] { hook(name); });
        body();
    });
}

} // namespace

void setThreadName(const std::string& name) noexcept {
    constexpr std::size_t kernelLimit = 15;
    char kept[kernelLimit + 1] = {};
    name.copy(kept, kernelLimit);
    pthread_setname_np(pthread_self(), kept);
}

void setThreadStartHook(ThreadStartHook hook) {
    SharedHook& shared = SharedHook::instance();
    const MutexLock lock(shared.mutex);
    shared.hook.swap(hook);
}

ThreadStartHook threadStartHook() {
    if (t_hook != nullptr)
        return *t_hook;
    SharedHook& shared = SharedHook::instance();
    const MutexLock lock(shared.mutex);
    return shared.hook;
}

ThreadStartHookScope::ThreadStartHookScope(ThreadStartHook hook) noexcept
    : m_hook(std::move(hook)), m_before(t_hook) {
    if (m_hook)
        t_hook = &m_hook;
}

ThreadStartHookScope::~ThreadStartHookScope() {
    t_hook = m_before;
}

bool onLibraryThread() noexcept {
    return t_libraryThread;
}

LibraryThreadMark::LibraryThreadMark() noexcept : m_before(t_libraryThread) {
    t_libraryThread = true;
}

LibraryThreadMark::~LibraryThreadMark() {
    t_libraryThread = m_before;
}

Thread::Thread(std::string name, std::function<void()> body, ThreadStartHook hook)
    : m_thread(startWithSignalsBlocked(std::move(name), std::move(body), std::move(hook))) {}

Thread::~Thread() {
    join();
}

Thread& Thread::operator=(Thread&& other) noexcept {
    if (this != &other) {
        join();
        m_thread = std::move(other.m_thread);
    }
    return *this;
}

void Thread::join() {
    if (!m_thread.joinable())
        return;
    if (isCurrent())
        m_thread.detach();
    else
        m_thread.join();
}

} // namespace tp
