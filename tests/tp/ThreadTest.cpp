#include <tp/Mutex.h>
#include <tp/Thread.h>

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <pthread.h>
#include <string>
#include <vector>

namespace {

sigset_t signalMask() {
    sigset_t mask;
    sigemptyset(&mask);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

TEST(Thread, BodyRunsNamedMarkedAndWithSignalsBlockedAndTheCallerKeepsItsMask) {
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGUSR2);
    pthread_sigmask(SIG_SETMASK, &wanted, nullptr);
    sigset_t inside;
    char name[16] = "";
    bool marked = false;
    tp::Thread thread("a-name-longer-than-the-kernel-takes", [&] {
        inside = signalMask();
        pthread_getname_np(pthread_self(), name, sizeof name);
        marked = tp::onLibraryThread();
    });
    EXPECT_FALSE(thread.isCurrent());
    thread.join();
    for (const int signal : {SIGINT, SIGTERM, SIGALRM, SIGUSR1, SIGPIPE, SIGCHLD})
        EXPECT_EQ(sigismember(&inside, signal), 1) << signal;
    EXPECT_STREQ(name, "a-name-longer-t");
    EXPECT_TRUE(marked);
    EXPECT_FALSE(tp::onLibraryThread());
    const sigset_t after = signalMask();
    EXPECT_EQ(sigismember(&after, SIGUSR2), 1);
    EXPECT_EQ(sigismember(&after, SIGINT), 0);
}

TEST(Thread, IsHandedToTheHookByItsNameBeforeItsWorkWhateverThatThrows) {
    std::vector<std::string> calls;
    const auto run = [&calls](auto... own) {
        tp::Thread(
            "a-thread", [&calls] { calls.emplace_back("work"); }, own...)
            .join();
    };
    tp::setThreadStartHook([&calls](const std::string& name) {
        calls.push_back(name + (tp::onLibraryThread() ? "" : " elsewhere"));
        throw 7;
    });
    run();
    run(tp::ThreadStartHook([&calls](const std::string&) { calls.emplace_back("its own"); }));
    tp::setThreadStartHook({});
    run();
    EXPECT_EQ(calls, (std::vector<std::string>{"a-thread", "work", "its own", "work", "work"}));
}

TEST(Thread, DestroyedByItsOwnBodyLetsItselfGo) {
    // Outlives the thread, which nobody can join.
    static struct {
        tp::Mutex mutex;
        tp::ConditionVariable changed;
        std::unique_ptr<tp::Thread> thread TP_GUARDED_BY(mutex);
        bool wasCurrent TP_GUARDED_BY(mutex) = false;
    } shared;
    tp::MutexLock lock(shared.mutex);
    shared.thread = std::make_unique<tp::Thread>("self", [] {
        const tp::MutexLock insideLock(shared.mutex);
        shared.wasCurrent = shared.thread->isCurrent();
        shared.thread.reset();
        shared.changed.notifyAll();
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (shared.thread != nullptr)
        ASSERT_TRUE(shared.changed.waitUntil(shared.mutex, deadline));
    EXPECT_TRUE(shared.wasCurrent);
}

TEST(Thread, AssignmentJoinsTheFormerThread) {
    bool ran = false;
    tp::Thread thread("first", [&] { ran = true; });
    thread = tp::Thread("second", [] {});
    EXPECT_TRUE(ran);
}

} // namespace
