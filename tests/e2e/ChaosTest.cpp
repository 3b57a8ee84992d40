// Bad days: hubs that die, hang, come back, lie and change under a subscriber. CONTRIBUTING.md says how to
// run more of them.
#include <atomic>
#include <chrono>
#include <iostream>
#include <limits>
#include <thread>

#include <gtest/gtest.h>

#include "ChaosLedger.h"
#include "Process.h"
#include "Stage.h"

namespace history {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tivra::HostConfig;
using tivra::Session;

constexpr std::uint64_t SEEDS = IS_SANITIZED ? 2 : 6;
constexpr auto PATIENCE = std::chrono::seconds(IS_SANITIZED ? 90 : 30);
constexpr auto STOP_LIMIT = std::chrono::seconds(IS_SANITIZED ? 20 : 5);
constexpr auto PACE = milliseconds(IS_SANITIZED ? 10 : 2);
constexpr long SILENCE_LIMIT = IS_SANITIZED ? 90 : 30; // of the library's seconds, which are fast
constexpr const char* TOGGLED = "MBOND";

struct Topic {
    int source;
    const char* symbol;
};
/// What is published all along. All but the last is subscribed from the beginning.
constexpr Topic TOPICS[] = {{200, "REGION0"}, {201, "REGION1"},       {300, "ABOND"}, {300, "ZBOND"},
                            {100, "IBM"},     {101, "IBM131221C185"}, {300, TOGGLED}};

tivra_sim::GroupConfig groupConfig() {
    tivra_sim::GroupConfig config = tivra_sim::GroupConfig::realistic(2);
    for (tivra_sim::GroupMember& member : config.members)
        member.hub.heartbeat.interval = milliseconds(20);
    return config;
}

/// Publishes numbered updates of every topic on both sides until it ends.
class Publisher {
public:
    explicit Publisher(Stage& stage) : m_thread([this, &stage] { run(stage); }) {}
    ~Publisher() {
        m_mustEnd = true;
        m_thread.join();
    }
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;

    [[nodiscard]] std::int64_t number() const { return m_number; }

private:
    void run(Stage& stage) {
        for (; !m_mustEnd; ++m_number) {
            for (const Topic& topic : TOPICS) {
                for (std::size_t side = 0; side < SIDES; ++side)
                    stage.sides[side].pushRecord(tivra_sim::Record(topic.source, topic.symbol)
                                                     .add(tivra_sim::token::BID, static_cast<int>(side))
                                                     .add(tivra_sim::token::SEQUENCE, m_number.load()));
            }
            std::this_thread::sleep_for(PACE); // the pace of the data
        }
    }

    std::atomic<std::int64_t> m_number{0};
    std::atomic<bool> m_mustEnd{false};
    std::thread m_thread;
};

/// Plays a history of faults over a session that subscribes from two groups of hubs, and checks after each
/// spell that everything is alive again and nothing was lost without a word. The first thing that was wrong
/// ends it.
class ChaosRun {
public:
    explicit ChaosRun(const History& history) : m_history(history), m_stage(history, SIDES, groupConfig()) {
        m_client.messageHook = [this](const tivra::MessageEvent& event) { m_ledger.note(event); };
        m_client.connections()
            .set(HostConfig::READ_TIMEOUT_LONG, SILENCE_LIMIT)
            .set(HostConfig::CONNECTION_RETRY_LIMIT_LONG, 3);
    }

    std::string play() {
        start();
        if (!m_client.isStarted || !m_client.waitForSessionEvent("ESTABLISHED"))
            return "no start before the first fault";
        const Publisher publisher(m_stage);
        subscribe();
        std::string fault = comeToRest(publisher);
        for (auto step = m_history.steps.begin(); fault.empty() && step != m_history.steps.end(); ++step) {
            if (step->kind == Step::Settle) {
                m_stage.clearUp();
                fault = comeToRest(publisher);
            } else {
                take(*step);
                std::this_thread::sleep_for(milliseconds(step->milliseconds)); // how long it lasts
            }
        }
        stop();
        return fault.empty() ? m_fault : fault;
    }

private:
    /// A start may fail while the hubs do, and on a machine that is busy: it is tried again, as an
    /// application would.
    void start() {
        const auto begin = steady_clock::now();
        do {
            m_client.start();
            ++m_starts;
        } while (!m_client.isStarted && steady_clock::now() - begin < PATIENCE);
    }

    void stop() {
        if (const milliseconds took = m_client.timedStop(); took > STOP_LIMIT)
            m_fault = "a stop took " + std::to_string(took.count()) + " ms";
    }

    void subscribe() {
        for (const Topic& topic : TOPICS) {
            if (topic.source == 100)
                m_client.send(tivra::SUBSCRIBE, 100, "", {{tivra::CUSIP, "459200101"}});
            else if (topic.source == 101)
                m_client.send(tivra::SUBSCRIBEWILDCARD, 101, "IBM*");
            else if (topic.symbol != TOGGLED)
                m_client.send(tivra::SUBSCRIBE, topic.source, topic.symbol);
        }
    }

    void take(const Step& step) {
        switch (step.kind) {
        case Step::Toggle:
            if (m_toggled == 0) {
                m_toggled = m_client.send(tivra::SUBSCRIBE, 300, TOGGLED);
            } else {
                m_client.send(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, std::to_string(m_toggled)}});
                m_toggled = 0;
            }
            return;
        case Step::Snap:
            m_client.send(tivra::QUERYSNAP, 300, "ZBOND");
            return;
        case Step::Restart:
            stop();
            m_client.start();
            ++m_starts;
            return;
        default:
            m_isGarbled = m_isGarbled || step.kind == Step::Garbage;
            m_stage.apply(step);
        }
    }

    /// Waits until all is well again and gives what isn't, or was not meanwhile.
    std::string comeToRest(const Publisher& publisher) {
        const auto begin = steady_clock::now();
        const std::int64_t number = publisher.number();
        if (!m_client.isStarted)
            start();
        for (std::string unrest = unrestAfter(number); !unrest.empty(); unrest = unrestAfter(number)) {
            if (steady_clock::now() - begin > PATIENCE)
                return unrest;
            std::this_thread::sleep_for(milliseconds(2)); // another look
        }
        m_isGarbled = false;
        m_starts = 0;
        m_spellsEvents = m_eventsRead;
        m_logBefore = m_client.log().size();
        if (const std::string disorder = m_ledger.disorder(); !disorder.empty())
            return "out of order: " + disorder;
        return m_fault;
    }

    /// What has not come to rest yet: everything wanted gives updates after `number`, and the session has
    /// told of each of its gaps. Empty when all has.
    std::string unrestAfter(std::int64_t number) {
        std::string silent;
        for (const Topic& topic : TOPICS) {
            if ((topic.symbol != TOGGLED || m_toggled != 0) && m_ledger.lastOf(topic.symbol) <= number)
                silent += std::string(" ") + topic.symbol;
        }
        if (!silent.empty())
            return "not alive again:" + silent;
        if (const int state = m_client.session().getState(); state != Session::TIVRA_SESSION_ESTABLISHED)
            return "the state is " + std::to_string(state);
        // The session's events come on a thread of their own, maybe after the data.
        readEvents();
        if (m_lastState != "ESTABLISHED")
            return "the last event of a session that is established was " + m_lastState;
        const std::size_t events = m_eventsRead - m_spellsEvents;
        const bool isGarbageTold =
            m_isGarbled && m_client.log().find("CRIT", m_logBefore) != std::string::npos;
        const std::size_t allowed =
            isGarbageTold ? std::numeric_limits<std::size_t>::max() : events + m_starts;
        const Ledger::Gaps gaps = m_ledger.settleGaps(TOGGLED, allowed);
        if (gaps.count > allowed)
            return std::to_string(gaps.count) + " gaps in " + gaps.where + ", and " + std::to_string(events) +
                   " events";
        return "";
    }

    void readEvents() {
        const std::vector<std::string> events = m_client.sessionEvents();
        for (; m_eventsRead < events.size(); ++m_eventsRead) {
            const std::string& event = events[m_eventsRead];
            // After a teardown the sources are told anew without a loss before.
            if (event.rfind("AVAILABLE_ALLSOURCES", 0) == 0)
                m_lastState = "UNAVAILABLE";
            if (event != "ESTABLISHED" && event != "RECOVERY" && event != "UNAVAILABLE")
                continue;
            const bool isNews = event == "UNAVAILABLE" ? m_lastState != "" : event != m_lastState;
            if (!isNews || (event == "RECOVERY" && m_lastState != "ESTABLISHED"))
                m_fault = event + " after " + m_lastState;
            m_lastState = event;
        }
    }

    const History& m_history;
    Ledger m_ledger; // the client's callbacks write it
    Stage m_stage;
    Client& m_client = m_stage.client;
    std::string m_fault;
    std::int64_t m_toggled = 0; ///< the tag of the symbol that comes and goes, 0 while it is away
    std::string m_lastState;    ///< the last event that told a state
    std::size_t m_eventsRead = 0;
    /// @name Since the last rest
    /// @{
    bool m_isGarbled = false;
    std::size_t m_starts = 0;
    std::size_t m_logBefore = 0;    ///< bytes of the log
    std::size_t m_spellsEvents = 0; ///< those read before
    /// @}
};

TEST(Chaos, EverythingIsAliveAgainAfterEachSpellOfFaults) {
    const std::uint64_t first = setting("TIVRA_CHAOS_FIRST_SEED", 1);
    const std::uint64_t count = setting("TIVRA_CHAOS_SEEDS", SEEDS);
    std::thread([] {}).join(); // a sanitizer makes a thread of its own beside the first
    for (std::uint64_t seed = first; seed < first + count; ++seed) {
        const History history = History::ofFaults(seed);
        std::cout << "seed " << seed << ": " << history.text() << std::flush;
        const std::size_t threadsBefore = threads();
        const std::size_t descriptorsBefore = descriptors();
        ASSERT_EQ(ChaosRun(history).play(), "") << "seed " << seed;
        EXPECT_EQ(threadsOnce(threadsBefore), threadsBefore);
        EXPECT_EQ(descriptors(), descriptorsBefore);
    }
}

} // namespace
} // namespace history
