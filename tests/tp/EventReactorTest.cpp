#include "SocketPair.h"

#include "support/LogCapture.h"

#include <tp/Clock.h>
#include <tp/EventReactor.h>
#include <tp/Thread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using tp::EventReactor;
using Names = std::vector<std::string>;

/// Writes down what was called and runs what a test gives it.
struct Recorder : tp::EventBase {
    Recorder(std::string recorderName, Names& recorderLog)
        : name(std::move(recorderName)), log(recorderLog) {}

    void readableEvent(double) override { call(".read", onRead); }
    void writableEvent(double) override { call(".write", onWrite); }
    void preActivityEvent(double) override { call(".pre", onPre); }
    void postActivityEvent(double) override { call(".post", onPost); }
    double timerEvent(double curtime) override {
        log.push_back(name + ".timer");
        return onTimer(curtime);
    }
    void call(const char* event, const std::function<void()>& handler) {
        log.push_back(name + event);
        handler();
    }

    std::string name;
    Names& log;
    std::function<void()> onRead = [] {}, onWrite = onRead, onPre = onRead, onPost = onRead;
    std::function<double(double)> onTimer = [](double) { return -1.0; };
};

class Reactor : public ::testing::TestWithParam<EventReactor::Backend> {
protected:
    /// Registers the recorder with input waiting.
    void makeReadable(Recorder& recorder, const SocketPair& pair) {
        reactor->regSocket(&recorder, pair.fd());
        reactor->watchReads(&recorder);
        pair.write("x");
    }
    static void takeByte(const SocketPair& pair) {
        char byte = 0;
        EXPECT_EQ(::read(pair.fd(), &byte, 1), 1);
    }

    std::unique_ptr<EventReactor> reactor = std::make_unique<EventReactor>(GetParam());
    std::function<void()> end = [this] { reactor->end(); };
    Names log;
    Recorder a{"a", log}, b{"b", log}, c{"c", log};
    SocketPair pairs[3];
};

INSTANTIATE_TEST_SUITE_P(Backends, Reactor,
                         ::testing::Values(EventReactor::Backend::automatic, EventReactor::Backend::poll),
                         [](const auto& backend) {
                             return backend.param == EventReactor::Backend::poll ? "poll" : "automatic";
                         });

TEST_P(Reactor, ABurstIsBracketedOnceAndWalkedBackward) {
    reactor->regActivity(&a);
    reactor->regActivity(&b);
    makeReadable(a, pairs[0]);
    pairs[0].write("x");
    a.onRead = [&] { takeByte(pairs[0]); }; // one byte an event: two events in one burst
    a.onPost = end;
    reactor->begin();
    EXPECT_EQ(log, (Names{"b.pre", "a.pre", "a.read", "a.read", "b.post", "a.post"}));
}

TEST_P(Reactor, EndInABurstClosesItOnceAndTheReactorCanBeginAgain) {
    reactor->regActivity(&a);
    makeReadable(a, pairs[0]);
    a.onRead = end;
    reactor->begin();
    reactor->begin();
    EXPECT_EQ(log, (Names{"a.pre", "a.read", "a.post", "a.pre", "a.read", "a.post"}));
}

TEST_P(Reactor, HangUpIsReadableEvenWhenNothingIsWatched) {
    reactor->regSocket(&a, pairs[0].fd());
    pairs[0].write("x"); // input alone is not asked for
    b.onTimer = [&](double) {
        pairs[0].hangUp();
        return -1.0;
    };
    reactor->regTimer(&b, 0.0);
    a.onRead = end;
    reactor->begin();
    EXPECT_EQ(log, (Names{"b.timer", "a.read"}));
}

TEST_P(Reactor, WritableComesBeforeReadableUntilItIsUnwatchedOrTheObjectLeaves) {
    makeReadable(a, pairs[0]);
    makeReadable(b, pairs[1]);
    reactor->watchWrites(&a);
    reactor->watchWrites(&b);
    a.onWrite = [&] { reactor->unWatchWrites(&a); };
    a.onRead = [&] {
        takeByte(pairs[0]);
        reactor->end();
    };
    b.onWrite = [&] { reactor->unRegSocket(&b); };
    reactor->regSocket(&c, pairs[2].fd());
    reactor->watchWrites(&c); // without input it is not read
    reactor->begin();
    EXPECT_THAT(log, UnorderedElementsAre("a.write", "a.read", "b.write", "c.write"));
    EXPECT_FALSE(b.hasSocket());
}

TEST_P(Reactor, UnwatchedInputThatIsAlreadyPendingIsNotDelivered) {
    makeReadable(a, pairs[0]);
    makeReadable(b, pairs[1]);
    a.onRead = b.onRead = [&] {
        reactor->unWatchReads(&a);
        reactor->unWatchReads(&b);
        reactor->end();
    };
    reactor->begin();
    EXPECT_EQ(log.size(), 1U);
}

TEST_P(Reactor, ANeighbourRemovedInADispatchIsSkippedAndTheOthersAreServed) {
    auto victim = std::make_unique<Recorder>("victim", log);
    makeReadable(a, pairs[0]);
    makeReadable(*victim, pairs[1]);
    makeReadable(c, pairs[2]);
    a.onRead = c.onRead = [&] {
        if (victim)
            reactor->unRegSocket(victim.get());
        victim.reset();
        reactor->end();
    };
    reactor->begin();
    EXPECT_THAT(log, UnorderedElementsAre("a.read", "c.read"));
}

TEST_P(Reactor, AChangedDescriptorKeepsWhatIsWatched) {
    makeReadable(a, pairs[0]);
    reactor->changeSocketFD(&a, pairs[1].fd());
    EXPECT_EQ(reactor->getSocketFD(&a), pairs[1].fd());
    pairs[1].write("x");
    a.onRead = [&] {
        takeByte(pairs[1]);
        reactor->end();
    };
    reactor->begin();
    EXPECT_EQ(log, Names{"a.read"});
}

TEST_P(Reactor, UnregisteredObjectsAreLeftAlone) {
    reactor->watchReads(&a);
    reactor->unWatchWrites(&a);
    reactor->unRegSocket(&a);
    reactor->unRegTimer(&a);
    reactor->unRegActivity(&a);
    reactor->changeSocketFD(&a, 0);
    EXPECT_EQ(reactor->getSocketFD(&a), -1);
}

TEST_P(Reactor, TimersFireOnceAPassUntilTheyReturnANegativeTime) {
    const tp::ManualClock clock(1000.0);
    int passes = 0;
    c.onTimer = [&](double) {
        if (++passes == 3)
            reactor->end();
        return 0.0; // stays registered and is due on each pass
    };
    reactor->regTimer(&a, 1e300); // must not overflow the wait time
    reactor->regTimer(&b, 999.0);
    reactor->regTimer(&c, 1000.0);
    reactor->begin();
    EXPECT_EQ(log, (Names{"c.timer", "b.timer", "c.timer", "c.timer"}));
    EXPECT_FALSE(b.hasTimer());
    EXPECT_TRUE(a.hasTimer());
}

TEST_P(Reactor, ATimerWaitsForItsTimeAlsoWhenAHandlerRegisteredIt) {
    const double due = tp::Clock::now() + 0.03;
    double firedAt = 0.0;
    a.onTimer = [&](double curtime) {
        firedAt = curtime;
        reactor->end();
        return -1.0;
    };
    b.onTimer = [&](double) {
        reactor->regTimer(&a, due);
        return -1.0;
    };
    reactor->regTimer(&b, 0.0);
    reactor->begin();
    EXPECT_GE(firedAt, due);
    EXPECT_LT(firedAt, due + 5.0);
    EXPECT_GE(reactor->getCurTime(), firedAt);
}

TEST_P(Reactor, AClockThatStepsBackFiresWhatWasDueWithinTheJump) {
    const std::pair<double, Names> rows[] = {{-0.5, {"a.timer", "a.timer"}},
                                             {0.6, {"a.timer", "d.timer", "a.timer"}},
                                             {-2.0, {"a.timer", "d.timer", "b.timer", "a.timer"}}};
    Recorder d("d", log);
    for (const auto& [step, fired] : rows) {
        SCOPED_TRACE(step);
        const tp::ManualClock clock(1000.0);
        LogCapture capture;
        log.clear();
        a.onTimer = [&, by = step](double) {
            if (log.size() == 1)
                tp::Clock::stepWallClock(by);
            else
                reactor->end();
            return 0.0;
        };
        reactor->regTimer(&a, 0.0);
        reactor->regTimer(&b, 1002.0);
        reactor->regTimer(&c, 1002.1);
        reactor->regTimer(&d, 1000.55);
        reactor->begin();
        EXPECT_EQ(log, fired);
        const Names warning{"CRIT: Time went backwards - trying to cope. (old=1000.000 new=998.000)"};
        EXPECT_EQ(capture.linesAboveDebug(), step == -2.0 ? warning : Names());
        for (Recorder* recorder : {&a, &b, &c, &d})
            reactor->unRegTimer(recorder);
    }
}

TEST_P(Reactor, HandlersMayUnregisterEachOther) {
    for (Recorder* recorder : {&a, &b, &c}) {
        reactor->regTimer(recorder, 1.0);
        reactor->regActivity(recorder);
    }
    c.onPre = [&] { reactor->unRegActivity(&c); }; // the walk goes on over the vacated slot
    c.onTimer = [&](double) {
        reactor->unRegTimer(&a);
        reactor->unRegTimer(&c); // the result is for nobody
        return 5.0;
    };
    b.onPost = end;
    reactor->begin();
    EXPECT_EQ(log, (Names{"c.pre", "b.pre", "a.pre", "c.timer", "b.timer", "b.post", "a.post"}));
    EXPECT_FALSE(c.hasTimer());
}

TEST_P(Reactor, AnActivityRemovedByAnotherIsNotWalkedInto) {
    for (Recorder* recorder : {&a, &b, &c})
        reactor->regActivity(recorder);
    c.onPre = [&] {
        reactor->unRegActivity(&a);
        reactor->unRegActivity(&b); // which stood in the slot that the walk comes to next
    };
    makeReadable(c, pairs[0]);
    c.onRead = end;
    reactor->begin();
    EXPECT_THAT(log, ::testing::Not(::testing::Contains("b.pre")));
    EXPECT_EQ(log.back(), "c.post");
}

TEST_P(Reactor, ManyObjectsThatDestroyEachOtherInEveryHandler) {
    std::mt19937 random(7);
    std::array<std::unique_ptr<Recorder>, 60> alive;
    std::array<SocketPair, 60> sockets;
    int calls = 0;
    std::function<void(std::size_t)> handle; // an event of that object
    const auto create = [&](std::size_t i) {
        alive[i] = std::make_unique<Recorder>("", log);
        Recorder* const recorder = alive[i].get();
        recorder->onRead = recorder->onWrite = [&handle, i] { handle(i); };
        recorder->onTimer = [&, i](double now) {
            handle(i);
            return random() % 2 == 0 ? now : -1.0;
        };
        reactor->regSocket(recorder, sockets[i].fd());
        reactor->watchReads(recorder);
        if (random() % 2 == 0)
            reactor->watchWrites(recorder);
        reactor->regTimer(recorder, 0.0);
        reactor->regActivity(recorder);
    };
    handle = [&](std::size_t self) {
        log.clear();
        if (++calls >= 5000)
            reactor->end();
        for (const std::size_t i : {random() % 60, random() % 60, random() % 60, random() % 60}) {
            if (alive[i] == nullptr) {
                create(i);
            } else if (i != self) {
                reactor->unRegSocket(alive[i].get());
                reactor->unRegTimer(alive[i].get());
                reactor->unRegActivity(alive[i].get());
                alive[i].reset();
            }
        }
    };
    for (std::size_t i = 0; i < alive.size(); ++i) {
        sockets[i].write("x");
        create(i);
    }
    reactor->begin();
    EXPECT_GE(calls, 5000);
}

TEST_P(Reactor, EndFromAnotherThreadReturnsWithinTheIdleWait) {
    std::promise<void> running;
    a.onTimer = [&](double) {
        running.set_value();
        return -1.0;
    };
    reactor->regTimer(&a, 0.0);
    tp::Thread thread("reactor", [&] { reactor->begin(); });
    running.get_future().wait();
    const auto start = std::chrono::steady_clock::now();
    reactor->end();
    thread.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(ReactorLimits, AFullListRefusesAndSaysSo) {
    const auto reactor = std::make_unique<EventReactor>(EventReactor::Backend::poll);
    std::vector<tp::EventBase> objects(EventReactor::maxEvents + 1);
    LogCapture log;
    for (tp::EventBase& object : objects) {
        reactor->regSocket(&object, 0);
        reactor->regTimer(&object, 1.0);
        reactor->regActivity(&object);
    }
    const tp::EventBase& last = objects[EventReactor::maxEvents - 1];
    EXPECT_TRUE(last.hasSocket() && last.hasTimer());
    EXPECT_FALSE(objects.back().hasSocket() || objects.back().hasTimer());
    EXPECT_THAT(log.linesAboveDebug(),
                ElementsAre(StartsWith("CRIT: regSocket"), StartsWith("CRIT: regTimer"),
                            StartsWith("CRIT: regActivity")));
}

int findEPollDescriptor() {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry, error) == "anon_inode:[eventpoll]")
            return std::stoi(entry.path().filename());
    }
    return -1;
}

TEST(ReactorLimits, AHostWithoutStandardInputDoesNotGetTheReactorInItsPlace) {
    const int saved = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    ::close(STDIN_FILENO);
    const auto reactor = std::make_unique<EventReactor>();
    const int epoll = findEPollDescriptor();
    ::dup2(saved, STDIN_FILENO);
    ::close(saved);
    EXPECT_GE(epoll, 3);
}

TEST(ReactorLimits, AWaitThatFailsForGoodNeitherSpinsNorFloodsTheLog) {
    const tp::ManualClock clock(1000.0);
    LogCapture capture;
    const auto reactor = std::make_unique<EventReactor>();
    const int epoll = findEPollDescriptor();
    ASSERT_GE(epoll, 0);
    const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::dup3(null, epoll, O_CLOEXEC), epoll);
    ::close(null);
    Names log;
    Recorder every("every", log);
    every.onTimer = [&](double) {
        if (log.size() == 4)
            tp::Clock::advance(1.0);
        if (log.size() == 6)
            reactor->end();
        return 0.0;
    };
    reactor->regTimer(&every, 0.0);
    const auto start = std::chrono::steady_clock::now();
    reactor->begin();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
    const auto line = StartsWith("CRIT: Error on poll: (");
    EXPECT_THAT(capture.linesAboveDebug(), ElementsAre(line, line));
}

TEST(ReactorLimits, RegisteringWithoutAHandlerIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    tp::EventBase plain;
    EXPECT_DEATH(plain.readableEvent(0.0), "without overriding readableEvent");
    EXPECT_DEATH(plain.timerEvent(0.0), "without overriding timerEvent");
}

} // namespace
