#include "receive/UserEventReactor.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tp/Clock.h>

#include "receive/Queue.h"

using namespace tivra_internal;

namespace {

/// A handler of a queue and a timer that writes down what is called, and lets a test act inside a call.
class Recorder : public UserEventBase {
public:
    Recorder(std::string handlerName, std::vector<std::string>& log)
        : name(std::move(handlerName)), m_log(log) {}

    void readableEvent(double) override {
        m_log.push_back("read " + name);
        if (queue != nullptr)
            queue->PopElement();
        if (onRead)
            onRead();
    }
    bool isStillReadable() const noexcept override { return saysWhetherMore && !queue->isEmpty(); }
    void preActivityEvent(double) override { m_log.push_back("pre " + name); }
    void postActivityEvent(double) override { m_log.push_back("post " + name); }
    double timerEvent(double curtime) override {
        m_log.push_back("timer " + name);
        return onTimer ? onTimer(curtime) : -1.0;
    }

    std::string name;
    Queue* queue = nullptr;
    bool saysWhetherMore = false;
    std::function<void()> onRead;
    std::function<double(double)> onTimer;

private:
    std::vector<std::string>& m_log;
};

using Log = std::vector<std::string>;

class UserEventReactorTest : public testing::Test {
protected:
    void attach(Recorder& handler, Queue& queue) {
        handler.queue = &queue;
        reactor.regQueue(&handler, &queue);
        reactor.watchReads(&handler);
    }
    static void put(Queue& queue, int frames = 1) {
        const std::string frame("\x04\x20\0\0\0\0\x03", 7);
        for (int i = 0; i < frames; ++i)
            ASSERT_TRUE(queue.writeToQueue(frame.data(), frame.size()));
    }
    /// Runs the loop until the log is this long; a timer that is never due in wall time bounds a failing
    /// test.
    void runUntil(std::size_t entries) {
        Log unused;
        Recorder stopper("stop", unused);
        stopper.onTimer = [&](double now) {
            if (log.size() >= entries || ++passes > 20000)
                reactor.end();
            return now;
        };
        reactor.regTimer(&stopper, 0.0);
        reactor.begin();
        reactor.unRegTimer(&stopper);
    }

    Log log;
    int passes = 0;
    UserEventReactor reactor{3};
    Queue first{1, false, nullptr, 70}, second{1, false, nullptr, 70};
    Recorder a{"a", log}, b{"b", log};
};

} // namespace

TEST_F(UserEventReactorTest, HandlersWithMoreTakeTurnsAndSeveralCallsAtOnceWhileTheseAreShort) {
    const tp::ManualClock clock;
    Queue third{1, false, nullptr, 70};
    Recorder c{"c", log};
    attach(a, first);
    attach(b, second);
    attach(c, third);
    struct Case {
        double secondsOfACall;
        int fewestChanges, mostChanges; ///< of the handler, in 300 calls
    };
    for (const Case& calls : {Case{5e-7, 5, 50}, Case{3e-6, 250, 300}, Case{3e-4, 200, 300}}) {
        SCOPED_TRACE(calls.secondsOfACall);
        for (Recorder* handler : {&a, &b, &c}) {
            handler->saysWhetherMore = true;
            handler->onRead = [&calls] { tp::Clock::advance(calls.secondsOfACall); };
            put(*handler->queue, 300);
        }
        log.clear();
        runUntil(900);
        int changes = 0;
        for (std::size_t i = 1; i < 300; ++i)
            changes += log[i] != log[i - 1] ? 1 : 0;
        EXPECT_GE(changes, calls.fewestChanges);
        EXPECT_LE(changes, calls.mostChanges);
        for (const char* name : {"read a", "read b", "read c"})
            EXPECT_GE(std::count(log.begin(), log.begin() + 585, name), 170) << name;
    }
    reactor.unRegQueue(&c);
}

TEST_F(UserEventReactorTest, NoFurtherRoundBeginsAfterASlowCallOrTheWishToEnd) {
    struct Case {
        int slowFrom, endAt; ///< numbers of calls
        Log expected;
        bool isAlone = false;
    };
    const Case cases[] = {
        {1, 3, {"timer t", "read a", "read b", "timer t", "read a", "read b"}},
        {3, 5, {"timer t", "read a", "read b", "read a", "timer t", "read a", "read b"}},
        {9, 3, {"timer t", "read a", "read b", "read a"}},
        {1, 3, {"timer t", "read a", "timer t", "read a", "timer t", "read a"}, true},
        {9, 3, {"timer t", "read a", "read a", "read a"}, true},
    };
    const tp::ManualClock clock;
    Recorder timer("t", log);
    timer.onTimer = [](double now) { return now; };
    reactor.regTimer(&timer, 0.0);
    attach(a, first);
    attach(b, second);
    a.saysWhetherMore = b.saysWhetherMore = true;
    put(first, 50);
    put(second, 50);
    for (const Case& c : cases) {
        int calls = 0;
        a.onRead = b.onRead = [&] {
            if (++calls >= c.slowFrom)
                tp::Clock::advance(0.3);
            if (calls == c.endAt)
                reactor.end();
        };
        if (c.isAlone)
            reactor.unRegQueue(&b);
        log.clear();
        reactor.begin();
        EXPECT_EQ(log, c.expected) << "slow from call " << c.slowFrom << ", end wanted in call " << c.endAt;
    }
    reactor.unRegTimer(&timer);
}

TEST_F(UserEventReactorTest, HandlerRemovedDuringADispatchGetsNoFurtherCall) {
    attach(a, first);
    attach(b, second);
    put(first, 2);
    put(second);
    a.onRead = [&] { reactor.unRegQueue(&b); };
    runUntil(2);
    EXPECT_EQ(log, (Log{"read a", "read a"}));
    // The last entry takes the place of one that leaves, and a second removal does nothing.
    attach(b, second);
    reactor.unRegQueue(&a);
    reactor.unRegQueue(&a);
    runUntil(3);
    EXPECT_EQ(log.back(), "read b");
    reactor.unRegQueue(&b);
    reactor.watchReads(&b);
    // Nor does one that is ready alone and has more.
    attach(a, first);
    a.saysWhetherMore = true;
    put(first, 3);
    a.onRead = [&] { reactor.unRegQueue(&a); };
    log.clear();
    runUntil(1);
    EXPECT_EQ(log, (Log{"read a"}));
}

TEST_F(UserEventReactorTest, UnwatchedQueueWaitsUntilItIsWatched) {
    reactor.regQueue(&a, &first);
    a.queue = &first;
    attach(b, second);
    put(first);
    put(second);
    b.onRead = [&] { reactor.watchReads(&a); };
    runUntil(2);
    reactor.unWatchReads(&a);
    put(first);
    put(second);
    b.onRead = nullptr;
    runUntil(3);
    EXPECT_EQ(log, (Log{"read b", "read a", "read b"}));
}

TEST_F(UserEventReactorTest, EndFromAnotherThreadIsSeenWhileIdleAndTheLoopCanBeginAgain) {
    const tp::ManualClock clock; // time stands: only the wake can end the wait
    for (int i = 0; i < 20; ++i) {
        std::thread loop([&] { reactor.begin(); });
        reactor.end();
        loop.join();
    }
    attach(a, first);
    put(first);
    a.onRead = [&] { reactor.end(); };
    reactor.begin();
    EXPECT_EQ(log, (Log{"read a"}));
}

TEST_F(UserEventReactorTest, OtherThreadsMayRegisterWhileTheLoopRuns) {
    a.onTimer = [](double now) { return now + 0.001; };
    reactor.regTimer(&a, 0.0);
    std::thread loop([&] { reactor.begin(); });
    Log unused;
    std::vector<std::unique_ptr<Queue>> queues;
    std::vector<std::unique_ptr<Recorder>> handlers;
    std::atomic<int> read{0};
    for (int i = 0; i < 20; ++i) {
        queues.push_back(std::make_unique<Queue>(1, false, nullptr, 70));
        handlers.push_back(std::make_unique<Recorder>("h", unused));
        handlers.back()->onRead = [&read] { ++read; };
        attach(*handlers.back(), *queues.back());
        put(*queues.back());
        if (i % 2 != 0)
            reactor.unRegQueue(handlers[static_cast<std::size_t>(i) - 1].get());
    }
    put(*queues.back(), 5);
    // Every other handler is called once, and the last one five times more.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (read < 15 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_GE(read.load(), 15);
    reactor.end();
    loop.join();
}
