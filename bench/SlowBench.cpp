// An application that is slower than its feed: what a full queue drops, what is held back while an answer is
// due, what a hub merges, and what of all that the application is told.
// usage: tivra_slow_bench [MICROSECONDS THAT A CALLBACK TAKES]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <tivra.h>
#include <tivra_sim/Hub.h>
#include <tivra_sim/Tokens.h>
#include <tivra_sim/TradingDay.h>
#include <tivra_sim/Wire.h>

namespace {

using tivra::HostConfig;
using tivra::SessionEvent;
using tivra::StatisticsEvent;
using namespace std::chrono_literals;

constexpr std::size_t kEvents = 40000;
constexpr int kSource = 100;
constexpr const char* kSymbols[] = {"AIG", "BAC", "IBM", "SPY"};
/// Times the pace of the day: some 9,000 events a second, in bursts.
constexpr double kFactor = 100.0;

struct Scene {
    const char* name;
    bool isCompressed;
    long conflationType;     ///< 0: the hub merges nothing
    bool awaitsAnswer;       ///< a query stays open all the time
    bool holdsReads = false; ///< see SessionConfig::HOLD_READS_BOOL
};

/// Takes its time with each update, and counts.
class SlowApplication : public tivra::SessionEventHandler,
                        public tivra::UserEventHandler,
                        public tivra::MessageEventHandler,
                        public tivra::StatisticsEventHandler {
public:
    explicit SlowApplication(std::chrono::microseconds pause) : m_pause(pause) {}

    void onUserEvent(const tivra::UserEvent&) override {}
    void onSessionEvent(const SessionEvent& event) override { ++events[event.getType()]; }
    void onStatisticsEvent(const StatisticsEvent& event) override {
        drop = std::max<std::uint64_t>(drop, event.getStat(StatisticsEvent::DROP));
        peak = std::max<std::uint64_t>(peak, event.getStat(StatisticsEvent::PEAK_PCT_FULL));
        quietRounds = updates == m_updatesBefore ? quietRounds + 1 : 0;
        m_updatesBefore = updates;
    }
    void onMessageEvent(const tivra::MessageEvent& event) override {
        if (event.getType() != tivra::MessageEvent::UPDATE)
            return;
        std::this_thread::sleep_for(m_pause);
        if (event.getReader().find(tivra_sim::token::SEQUENCE))
            seen.at(static_cast<std::size_t>(event.getReader().getValueAsInteger())) = true;
        ++updates;
    }

    // Read when the session has stopped, but for the atomic ones.
    std::size_t events[SessionEvent::TIVRA_SESSION_SOURCE_REMOVED + 1] = {};
    std::uint64_t drop = 0, peak = 0;
    std::vector<bool> seen = std::vector<bool>(kEvents + 1);
    std::atomic<std::size_t> updates{0};
    std::atomic<int> quietRounds{0}; ///< statistics events one after the other without a new update

private:
    const std::chrono::microseconds m_pause;
    std::size_t m_updatesBefore = 0;
};

/// A log in a directory of its own, where lines can be counted.
class CountedLog {
public:
    CountedLog() {
        char name[] = "/tmp/tivra-slow-XXXXXX";
        if (mkdtemp(name) == nullptr)
            throw std::runtime_error("no directory for the log");
        m_directory = name;
        tivra::APIFactory::getInstance()->initialize("slow", "1", true, m_directory + "/log");
    }
    ~CountedLog() {
        tivra::APIFactory::getInstance()->uninitialize();
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
    }
    CountedLog(const CountedLog&) = delete;
    CountedLog& operator=(const CountedLog&) = delete;

    [[nodiscard]] std::size_t count(const std::string& text) const {
        std::size_t found = 0;
        for (const auto& entry : std::filesystem::directory_iterator(m_directory)) {
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);)
                if (line.find(text) != std::string::npos)
                    ++found;
        }
        return found;
    }

private:
    std::string m_directory;
};

tivra_sim::HubConfig playing(const Scene& scene) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.playback.file = TIVRA_SAMPLE_DAY;
    config.playback.maxEvents = kEvents;
    config.playback.factor = kFactor;
    config.conflation = scene.conflationType != 0;
    config.outputLimit = 0;
    return config;
}

/// Bytes of the frames whose events the application has not seen.
std::uint64_t bytesOfUnseen(const SlowApplication& application) {
    std::uint64_t bytes = 0;
    std::size_t sequence = 0;
    const std::int64_t midnight = tivra_sim::Playback().midnight;
    tivra_sim::readTradingDay(TIVRA_SAMPLE_DAY, [&](const tivra_sim::MarketEvent& event) {
        if (!application.seen[++sequence])
            bytes += tivra_sim::encodeFrame(tivra_sim::eventBody(event, kSource, midnight, sequence)).size();
        return sequence < kEvents;
    });
    return bytes;
}

void send(tivra::Session& session, tivra::Commands command, const char* symbol) {
    tivra::Request& request = session.createRequest();
    request.setCommand(command);
    request.add(tivra::ENUM_SRC_ID, kSource).add(tivra::SYMBOL_TICKER, std::string(symbol));
    session.send(request);
    session.freeRequest(request);
}

void play(tivra::Session& session, tivra_sim::Hub& hub, SlowApplication& application, const Scene& scene) {
    for (const char* symbol : kSymbols)
        send(session, tivra::SUBSCRIBE, symbol);
    if (!hub.waitForSubscriptions(std::size(kSymbols), 30s))
        throw std::runtime_error("the subscriptions did not arrive");
    if (scene.awaitsAnswer) {
        hub.setAnswerDelay(600s);
        send(session, tivra::QUERYSNAP, kSymbols[0]);
    }
    hub.startPlayback();
    static_cast<void>(hub.waitForPlayback(120s));
    const auto end = std::chrono::steady_clock::now() + 120s;
    application.quietRounds = 0;
    while (application.quietRounds < 3 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(50ms); // until nothing comes any more
}

void run(const Scene& scene, std::chrono::microseconds pause) {
    const CountedLog log;
    tivra_sim::Hub hub(playing(scene));
    hub.start();
    SlowApplication application(pause);
    tivra::APIFactory* const factory = tivra::APIFactory::getInstance();
    tivra::UserInfo& user = factory->createUserInfo("demo", "demo", application);
    tivra::Session& session = factory->createSession(user, application);
    session.getSessionConfig()
        .set(tivra::SessionConfig::WATCHLIST_BOOL, true)
        .set(tivra::SessionConfig::HOLD_READS_BOOL, scene.holdsReads);
    session.getConnectionConfig()
        .set(HostConfig::COMPRESSION_BOOL, scene.isCompressed)
        .set(HostConfig::CONFLATION_TYPE_LONG, scene.conflationType != 0 ? scene.conflationType : 1L)
        .set(HostConfig::CONFLATION_INTERVAL_LONG, 100L)
        .set(HostConfig::READ_TIMEOUT_LONG, 0L)
        .getHostConfig(hub.hostString());
    session.registerMessageEventHandler(&application);
    session.registerStatisticsEventHandler(&application, 0);
    std::string reason;
    if (!session.start(reason))
        throw std::runtime_error("start failed: " + reason);
    play(session, hub, application, scene);
    session.stop();
    factory->destroySession(session);
    factory->destroyUserInfo(user);

    const auto unseen =
        static_cast<std::size_t>(std::count(application.seen.begin() + 1, application.seen.end(), false));
    const auto events = [&application](SessionEvent::Types type) { return application.events[type]; };
    std::printf("\n%s\n", scene.name);
    std::printf("  events of the day %zu, updates sent %llu, told %zu, not told %zu in %llu bytes\n", kEvents,
                static_cast<unsigned long long>(hub.statistics().updatesSent), application.updates.load(),
                unseen, static_cast<unsigned long long>(bytesOfUnseen(application)));
    std::printf("  statistics: %llu bytes dropped, queue at most %llu %% full\n",
                static_cast<unsigned long long>(application.drop),
                static_cast<unsigned long long>(application.peak));
    std::printf("  events: queue above its threshold %zu times, below %zu, merging begun %zu, ended %zu, "
                "connection lost %zu\n",
                events(SessionEvent::TIVRA_SESSION_RECEIVE_QUEUE_ABOVE_THRESHOLD),
                events(SessionEvent::TIVRA_SESSION_RECEIVE_QUEUE_BELOW_THRESHOLD),
                events(SessionEvent::TIVRA_SESSION_JIT_START_CONFLATING),
                events(SessionEvent::TIVRA_SESSION_JIT_STOP_CONFLATING),
                events(SessionEvent::TIVRA_SESSION_UNAVAILABLE));
    std::printf("  reading suspended %zu times\n", log.count("m_suspendReadFromSocket=1;"));
}

} // namespace

int main(int argc, char** argv) {
    const std::chrono::microseconds pause(argc > 1 ? std::atoi(argv[1]) : 200);
    const Scene scenes[] = {
        {"Nothing outstanding, plain: what the queue cannot take is dropped", false, 0, false},
        {"Nothing outstanding, compressed: the connection is dialled again", true, 0, false},
        {"An answer is due: reading waits", false, 0, true},
        {"Nothing outstanding, compressed, HOLD_READS_BOOL: reading waits", true, 0, false, true},
        {"The hub merges just in time", false, 3, false},
        {"The hub merges just in time by an interval of 100 ms", false, 4, false},
        {"The hub merges all the time by an interval of 100 ms", false, 1, false},
    };
    try {
        std::printf("%zu events in some %d seconds to an application that takes %lld us for each\n", kEvents,
                    static_cast<int>(442 / kFactor), static_cast<long long>(pause.count()));
        for (const Scene& scene : scenes)
            run(scene, pause);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "slow: %s\n", error.what());
        return 1;
    }
    return 0;
}
