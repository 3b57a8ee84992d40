#include <tp/Clock.h>
#include <tp/EventReactor.h>
#include <tp/Thread.h>
#include <tp/eprintf.h>

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
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using tp::EventReactor;
using Names = std::vector<std::string>;

/// Both ends of a connection; the reactor's end is `fd()`.
class SocketPair {
public:
    SocketPair() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_ends.data()), 0); }
    ~SocketPair() {
        hangUp();
        ::close(m_ends[0]);
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    [[nodiscard]] int fd() const { return m_ends[0]; }
    void sendByte() const { EXPECT_EQ(::write(m_ends[1], "x", 1), 1); }
    void takeByte() const {
        char byte = 0;
        EXPECT_EQ(::read(m_ends[0], &byte, 1), 1);
    }
    void hangUp() {
        if (m_ends[1] >= 0)
            ::close(m_ends[1]);
        m_ends[1] = -1;
    }

private:
    std::array<int, 2> m_ends{-1, -1};
};

/// Runs what a test gives it and writes down what was called.
struct Recorder : tp::EventBase {
    Recorder(std::string recorderName, Names& recorderLog)
        : name(std::move(recorderName)), log(recorderLog) {}

    void readableEvent(double) override {
        log.push_back(name + ".read");
        onRead();
    }
    void writableEvent(double) override {
        log.push_back(name + ".write");
        onWrite();
    }
    void preActivityEvent(double) override {
        log.push_back(name + ".pre");
        onPre();
    }
    void postActivityEvent(double) override {
        log.push_back(name + ".post");
        onPost();
    }
    double timerEvent(double curtime) override {
        log.push_back(name + ".timer");
        return onTimer(curtime);
    }

    std::string name;
    Names& log;
    std::function<void()> onRead = [] {};
    std::function<void()> onWrite = [] {};
    std::function<void()> onPre = [] {};
    std::function<void()> onPost = [] {};
    std::function<double(double)> onTimer = [](double) { return -1.0; };
};

class Reactor : public ::testing::TestWithParam<EventReactor::Backend> {
protected:
    Recorder make(const std::string& name) { return {name, log}; }
    /// Registers the recorder with input waiting.
    void makeReadable(Recorder& recorder, const SocketPair& pair) {
        reactor->regSocket(&recorder, pair.fd());
        reactor->watchReads(&recorder);
        pair.sendByte();
    }

    std::unique_ptr<EventReactor> reactor = std::make_unique<EventReactor>(GetParam());
    Names log;
};

INSTANTIATE_TEST_SUITE_P(Backends, Reactor,
                         ::testing::Values(EventReactor::Backend::automatic, EventReactor::Backend::poll),
                         [](const auto& backend) {
                             return backend.param == EventReactor::Backend::poll ? "poll" : "automatic";
                         });

TEST_P(Reactor, ABurstIsBracketedOnceAndWalkedBackward) {
    SocketPair pair;
    Recorder a = make("a");
    Recorder b = make("b");
    reactor->regActivity(&a);
    reactor->regActivity(&b);
    makeReadable(a, pair);
    pair.sendByte();
    a.onRead = [&] { pair.takeByte(); }; // one byte an event: two events in one burst
    a.onPost = [&] { reactor->end(); };
    reactor->begin();
    EXPECT_EQ(log, (Names{"b.pre", "a.pre", "a.read", "a.read", "b.post", "a.post"}));
}

TEST_P(Reactor, EndInABurstClosesItOnceAndTheReactorCanBeginAgain) {
    SocketPair pair;
    Recorder a = make("a");
    reactor->regActivity(&a);
    makeReadable(a, pair);
    a.onRead = [&] { reactor->end(); };
    reactor->begin();
    reactor->begin();
    EXPECT_EQ(log, (Names{"a.pre", "a.read", "a.post", "a.pre", "a.read", "a.post"}));
}

TEST_P(Reactor, HangUpIsReadableEvenWhenNothingIsWatched) {
    SocketPair pair;
    Recorder a = make("a");
    reactor->regSocket(&a, pair.fd());
    pair.sendByte(); // input alone is not asked for
    Recorder timer = make("t");
    timer.onTimer = [&](double) {
        pair.hangUp();
        return -1.0;
    };
    reactor->regTimer(&timer, 0.0);
    a.onRead = [&] { reactor->end(); };
    reactor->begin();
    EXPECT_EQ(log, (Names{"t.timer", "a.read"}));
}

TEST_P(Reactor, WritableComesBeforeReadableUntilItIsUnwatchedOrTheObjectLeaves) {
    SocketPair first;
    SocketPair second;
    Recorder stays = make("stays");
    Recorder leaves = make("leaves");
    for (auto [recorder, pair] : {std::pair{&stays, &first}, std::pair{&leaves, &second}}) {
        makeReadable(*recorder, *pair);
        reactor->watchWrites(recorder);
    }
    stays.onWrite = [&] { reactor->unWatchWrites(&stays); };
    stays.onRead = [&] {
        first.takeByte();
        reactor->end();
    };
    leaves.onWrite = [&] { reactor->unRegSocket(&leaves); };
    reactor->begin();
    EXPECT_THAT(log, ::testing::UnorderedElementsAre("stays.write", "stays.read", "leaves.write"));
    EXPECT_FALSE(leaves.hasSocket());
}

TEST_P(Reactor, AWritableSocketWithoutInputIsNotRead) {
    SocketPair pair;
    Recorder a = make("a");
    reactor->regSocket(&a, pair.fd());
    reactor->watchWrites(&a);
    a.onWrite = [&] { reactor->end(); };
    reactor->begin();
    EXPECT_EQ(log, Names{"a.write"});
}

TEST_P(Reactor, UnwatchedInputThatIsAlreadyPendingIsNotDelivered) {
    SocketPair pairs[2];
    Recorder a = make("a");
    Recorder b = make("b");
    makeReadable(a, pairs[0]);
    makeReadable(b, pairs[1]);
    const auto silenceBoth = [&] {
        reactor->unWatchReads(&a);
        reactor->unWatchReads(&b);
        reactor->end();
    };
    a.onRead = b.onRead = silenceBoth;
    reactor->begin();
    EXPECT_EQ(log.size(), 1U);
}

TEST_P(Reactor, ANeighbourRemovedInADispatchIsSkippedAndTheOthersAreServed) {
    SocketPair pairs[3];
    Recorder a = make("a");
    auto victim = std::make_unique<Recorder>("victim", log);
    Recorder c = make("c");
    makeReadable(a, pairs[0]);
    makeReadable(*victim, pairs[1]);
    makeReadable(c, pairs[2]);
    const auto remove = [&] {
        if (victim)
            reactor->unRegSocket(victim.get());
        victim.reset();
        reactor->end();
    };
    a.onRead = c.onRead = remove;
    reactor->begin();
    EXPECT_THAT(log, ::testing::UnorderedElementsAre("a.read", "c.read"));
}

TEST_P(Reactor, AChangedDescriptorKeepsWhatIsWatched) {
    SocketPair before;
    SocketPair after;
    Recorder a = make("a");
    makeReadable(a, before);
    reactor->changeSocketFD(&a, after.fd());
    EXPECT_EQ(reactor->getSocketFD(&a), after.fd());
    after.sendByte();
    a.onRead = [&] {
        after.takeByte();
        reactor->end();
    };
    reactor->begin();
    EXPECT_EQ(log, Names{"a.read"});
}

TEST_P(Reactor, UnregisteredObjectsAreLeftAlone) {
    Recorder a = make("a");
    reactor->watchReads(&a);
    reactor->unWatchWrites(&a);
    reactor->unRegSocket(&a);
    reactor->unRegTimer(&a);
    reactor->unRegActivity(&a);
    reactor->changeSocketFD(&a, 0);
    EXPECT_EQ(reactor->getSocketFD(&a), -1);
    EXPECT_FALSE(a.hasSocket());
}

TEST_P(Reactor, TimersFireOnceAPassUntilTheyReturnANegativeTime) {
    const tp::ManualClock clock(1000.0);
    Recorder every = make("every"); // 0.0 stays registered and is due on each pass
    Recorder once = make("once");
    Recorder far = make("far");
    int passes = 0;
    every.onTimer = [&](double) {
        if (++passes == 3)
            reactor->end();
        return 0.0;
    };
    reactor->regTimer(&far, 1e300); // must not overflow the wait time
    reactor->regTimer(&once, 999.0);
    reactor->regTimer(&every, 1000.0);
    reactor->begin();
    EXPECT_EQ(log, (Names{"every.timer", "once.timer", "every.timer", "every.timer"}));
    EXPECT_FALSE(once.hasTimer());
    EXPECT_TRUE(far.hasTimer());
}

TEST_P(Reactor, ATimerWaitsForItsTimeAlsoWhenAHandlerRegisteredIt) {
    Recorder first = make("first");
    Recorder a = make("a");
    const double due = tp::Clock::now() + 0.03;
    double firedAt = 0.0;
    a.onTimer = [&](double curtime) {
        firedAt = curtime;
        reactor->end();
        return -1.0;
    };
    first.onTimer = [&](double) {
        reactor->regTimer(&a, due);
        return -1.0;
    };
    reactor->regTimer(&first, 0.0);
    reactor->begin();
    EXPECT_GE(firedAt, due);
    EXPECT_LT(firedAt, due + 5.0);
    EXPECT_DOUBLE_EQ(reactor->getCurTime() < firedAt ? 0.0 : firedAt, firedAt);
}

TEST_P(Reactor, AClockThatStepsBackFiresWhatWasDueWithinTheJump) {
    const struct {
        double step;
        bool copes;
    } cases[] = {{-0.5, false}, {-2.0, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.step);
        const tp::ManualClock clock(1000.0);
        tp::eprintf_ctrl(EPF_DISABLE, EPF_SUPPRESS);
        reactor = std::make_unique<EventReactor>(GetParam());
        log.clear();
        SocketPair pair;
        Recorder stepper = make("stepper");
        Recorder within = make("within");
        Recorder beyond = make("beyond");
        Recorder last = make("last");
        stepper.onTimer = [&](double) {
            tp::Clock::stepWallClock(c.step);
            return -1.0;
        };
        stepper.onPost = [&] { makeReadable(last, pair); };
        last.onRead = [&] { reactor->end(); };
        reactor->regTimer(&stepper, 1000.0);
        reactor->regTimer(&within, 1002.0);
        reactor->regTimer(&beyond, 1002.1);
        reactor->regActivity(&stepper);
        ::testing::internal::CaptureStderr();
        // The post handler unregisters itself, so it runs for the first burst alone.
        stepper.onPost = [&, arm = stepper.onPost] {
            reactor->unRegActivity(&stepper);
            arm();
        };
        reactor->begin();
        const std::string logged = ::testing::internal::GetCapturedStderr();
        Names expected{"stepper.pre", "stepper.timer", "stepper.post"};
        if (c.copes)
            expected.emplace_back("within.timer");
        expected.emplace_back("last.read");
        EXPECT_EQ(log, expected);
        EXPECT_EQ(logged.find("CRIT: Time went backwards - trying to cope. (old=1000.000 new=998.000)") !=
                      std::string::npos,
                  c.copes);
        reactor.reset();
    }
}

TEST_P(Reactor, HandlersMayUnregisterEachOther) {
    Recorder a = make("a");
    Recorder b = make("b");
    Recorder c = make("c");
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
    b.onPost = [&] { reactor->end(); };
    reactor->begin();
    EXPECT_EQ(log, (Names{"c.pre", "b.pre", "a.pre", "c.timer", "b.timer", "b.post", "a.post"}));
    EXPECT_FALSE(c.hasTimer());
}

TEST_P(Reactor, AnActivityRemovedByAnotherIsNotWalkedInto) {
    SocketPair pair;
    Recorder a = make("a");
    Recorder b = make("b");
    Recorder c = make("c");
    for (Recorder* recorder : {&a, &b, &c})
        reactor->regActivity(recorder);
    c.onPre = [&] {
        reactor->unRegActivity(&a);
        reactor->unRegActivity(&b); // which stood in the slot that the walk comes to next
    };
    makeReadable(c, pair);
    c.onRead = [&] { reactor->end(); };
    reactor->begin();
    EXPECT_THAT(log, ::testing::Not(::testing::Contains("b.pre")));
    EXPECT_EQ(log.back(), "c.post");
}

TEST_P(Reactor, ManyObjectsThatDestroyEachOtherInEveryHandler) {
    constexpr std::size_t objects = 60;
    std::mt19937 random(7);
    std::array<std::unique_ptr<Recorder>, objects> alive;
    std::vector<std::unique_ptr<SocketPair>> pairs;
    int calls = 0;
    Recorder* running = nullptr;
    const auto create = [&](std::size_t i, const auto& handler) {
        alive[i] = std::make_unique<Recorder>(std::to_string(i), log);
        Recorder& recorder = *alive[i];
        const auto run = [&, self = &recorder] {
            running = self;
            handler();
        };
        recorder.onRead = recorder.onWrite = run;
        recorder.onTimer = [&, run](double now) {
            run();
            return random() % 2 == 0 ? now : -1.0;
        };
        reactor->regSocket(&recorder, pairs[i]->fd());
        reactor->watchReads(&recorder);
        if (random() % 2 == 0)
            reactor->watchWrites(&recorder);
        reactor->regTimer(&recorder, 0.0);
        reactor->regActivity(&recorder);
    };
    const auto destroy = [&](std::size_t i) {
        reactor->unRegSocket(alive[i].get());
        reactor->unRegTimer(alive[i].get());
        reactor->unRegActivity(alive[i].get());
        alive[i].reset();
    };
    const std::function<void()> handler = [&] {
        log.clear();
        if (++calls >= 5000)
            reactor->end();
        for (int turn = 0; turn < 4; ++turn) {
            const std::size_t i = random() % objects;
            if (alive[i].get() == running)
                reactor->unWatchWrites(running);
            else if (alive[i])
                destroy(i);
            else
                create(i, handler);
        }
    };
    for (std::size_t i = 0; i < objects; ++i) {
        pairs.push_back(std::make_unique<SocketPair>());
        pairs.back()->sendByte();
        create(i, handler);
    }
    reactor->begin();
    EXPECT_GE(calls, 5000);
}

TEST_P(Reactor, EndFromAnotherThreadReturnsWithinTheIdleWait) {
    std::promise<void> running;
    Recorder a = make("a");
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
    std::vector<std::unique_ptr<tp::EventBase>> objects;
    ::testing::internal::CaptureStderr();
    for (int i = 0; i <= EventReactor::maxEvents; ++i) {
        objects.push_back(std::make_unique<tp::EventBase>());
        reactor->regSocket(objects.back().get(), 0);
        reactor->regTimer(objects.back().get(), 1.0);
        reactor->regActivity(objects.back().get());
    }
    const std::string logged = ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(objects[EventReactor::maxEvents - 1]->hasSocket());
    EXPECT_TRUE(objects[EventReactor::maxEvents - 1]->hasTimer());
    EXPECT_FALSE(objects.back()->hasSocket());
    EXPECT_FALSE(objects.back()->hasTimer());
    for (const char* operation : {"CRIT: regSocket", "CRIT: regTimer", "CRIT: regActivity"})
        EXPECT_THAT(logged, ::testing::HasSubstr(operation));
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
    tp::eprintf_ctrl(EPF_DISABLE, EPF_SUPPRESS);
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
    ::testing::internal::CaptureStderr();
    const auto start = std::chrono::steady_clock::now();
    reactor->begin();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
    const std::string logged = ::testing::internal::GetCapturedStderr();
    std::size_t lines = 0;
    for (std::size_t at = logged.find("CRIT: Error on poll: ("); at != std::string::npos;
         at = logged.find("CRIT: Error on poll: (", at + 1))
        ++lines;
    EXPECT_EQ(lines, 2U) << logged;
}

TEST(ReactorLimits, RegisteringWithoutAHandlerIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    tp::EventBase plain;
    EXPECT_DEATH(plain.readableEvent(0.0), "without overriding readableEvent");
    EXPECT_DEATH(plain.timerEvent(0.0), "without overriding timerEvent");
}

} // namespace
