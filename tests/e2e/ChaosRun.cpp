#include "ChaosRun.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <memory>
#include <random>
#include <thread>

#include <tivra_sim/HubGroup.h>

#include "ChaosLedger.h"
#include "Client.h"
#include "FastTime.h"

namespace chaos {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tivra::HostConfig;
using tivra::Session;
using tivra_sim::Hub;
using tivra_sim::HubGroup;
using tivra_sim::Record;

constexpr auto PATIENCE = std::chrono::seconds(IS_SANITIZED ? 90 : 30);
constexpr auto STOP_LIMIT = std::chrono::seconds(IS_SANITIZED ? 20 : 5);
constexpr auto PACE = milliseconds(IS_SANITIZED ? 10 : 2);
constexpr long SILENCE_LIMIT = IS_SANITIZED ? 90 : 30; // of the library's seconds, which are fast
constexpr int OPEN_SOURCE = 102;                       // a right that comes and goes, and nothing hangs on it
constexpr const char* TOGGLED = "MBOND";

struct Topic {
    int source;
    const char* symbol;
};
/// What is published all along. All but the last is subscribed from the beginning.
constexpr Topic TOPICS[] = {{200, "REGION0"}, {201, "REGION1"},       {300, "ABOND"}, {300, "ZBOND"},
                            {100, "IBM"},     {101, "IBM131221C185"}, {300, TOGGLED}};

tivra_sim::GroupConfig groupConfig() {
    tivra_sim::GroupConfig config = tivra_sim::GroupConfig::realistic(MEMBERS);
    for (tivra_sim::GroupMember& member : config.members)
        member.hub.heartbeat.interval = milliseconds(20);
    return config;
}

milliseconds since(steady_clock::time_point begin) {
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
}

/// Publishes numbered updates of every topic on both sides until it ends.
class Publisher {
public:
    explicit Publisher(HubGroup* sides) : m_thread([this, sides] { run(sides); }) {}
    ~Publisher() {
        m_mustEnd = true;
        m_thread.join();
    }
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;

    [[nodiscard]] std::int64_t number() const { return m_number; }

private:
    void run(HubGroup* sides) {
        while (!m_mustEnd) {
            for (const Topic& topic : TOPICS) {
                for (std::size_t side = 0; side < SIDES; ++side)
                    sides[side].pushRecord(Record(topic.source, topic.symbol)
                                               .add(tivra_sim::token::BID, static_cast<int>(side))
                                               .add(tivra_sim::token::SEQUENCE, m_number.load()));
            }
            ++m_number;
            std::this_thread::sleep_for(PACE); // the pace of the data
        }
    }

    std::atomic<std::int64_t> m_number{0};
    std::atomic<bool> m_mustEnd{false};
    std::thread m_thread;
};

class Run {
public:
    Run(const Forecast& forecast, Totals& totals)
        : m_forecast(forecast), m_totals(totals), m_dice(forecast.seed) {
        for (HubGroup& side : m_sides)
            side.start();
        makeClient();
    }

    std::optional<std::string> play() {
        // A machine that is busy may need more than one: the library's clock runs fast.
        const auto begin = steady_clock::now();
        do
            m_client->start();
        while (!m_client->isStarted && since(begin) < PATIENCE);
        if (!m_client->isStarted || !m_client->waitForSessionEvent("ESTABLISHED"))
            return "no start in clear weather";
        const Publisher publisher(m_sides);
        subscribe();
        if (const auto fault = comeToRest(publisher))
            return "in clear weather: " + *fault;
        for (const std::vector<Event>& spell : m_forecast.spells) {
            ++m_totals.spells;
            for (const Event& event : spell) {
                befall(event);
                std::this_thread::sleep_for(milliseconds(event.milliseconds)); // how long it lasts
            }
            clearUp();
            if (const auto fault = comeToRest(publisher))
                return fault;
        }
        m_totals.updates += m_ledger.updates();
        return stop();
    }

private:
    Hub& hubOf(const Event& event) { return m_sides[event.side].hub(event.member); }

    void makeClient() {
        m_client = std::make_unique<Client>(m_sides[0].hub(0));
        m_client->messageHook = [this](const tivra::MessageEvent& event) { m_ledger.note(event); };
        tivra::SessionConfig& settings = m_client->settings();
        settings.set(tivra::SessionConfig::WATCHLIST_BOOL, true);
        settings.set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, m_forecast.hasThreadPerHub);
        tivra::ConnectionConfig& connections = m_client->connections();
        connections.set(HostConfig::COMPRESSION_BOOL, m_forecast.isCompressed);
        connections.set(HostConfig::READ_TIMEOUT_LONG, SILENCE_LIMIT);
        connections.set(HostConfig::CONNECTION_RETRY_LIMIT_LONG, 3);
        if (m_forecast.hasBackup)
            m_client->host(m_sides[1].hostString()).set(HostConfig::BACKUP_BOOL, true);
    }

    void subscribe() {
        for (const Topic& topic : TOPICS) {
            if (topic.source == 100)
                m_client->send(tivra::SUBSCRIBE, 100, "", {{tivra::CUSIP, "459200101"}});
            else if (topic.source == 101)
                m_client->send(tivra::SUBSCRIBEWILDCARD, 101, "IBM*");
            else if (topic.symbol != TOGGLED)
                m_client->send(tivra::SUBSCRIBE, topic.source, topic.symbol);
        }
    }

    void befall(const Event& event);
    void toggle();
    void rights() {
        for (HubGroup& side : m_sides)
            m_isOpen ? side.withdraw("demo", OPEN_SOURCE) : side.grant("demo", OPEN_SOURCE);
        m_isOpen = !m_isOpen;
    }
    void garble(Hub& hub, unsigned amount);
    void newDictionary(Hub& hub, unsigned amount);
    std::optional<std::string> stop();
    void clearUp();
    bool isWanted(const Topic& topic) const { return topic.symbol != TOGGLED || m_toggled != 0; }
    std::optional<std::string> comeToRest(const Publisher& publisher);
    /// What has not come to rest yet: everything wanted gives updates behind `number`, and the session has
    /// told of each of its gaps. Empty when all has.
    std::string unrestBehind(std::int64_t number);
    void readEvents();

    const Forecast& m_forecast;
    Totals& m_totals;
    std::mt19937_64 m_dice;
    HubGroup m_sides[SIDES]{HubGroup(groupConfig()), HubGroup(groupConfig())};
    Ledger m_ledger;
    FastTime m_time;
    std::unique_ptr<Client> m_client;
    std::int64_t m_toggled = 0; ///< the tag of the symbol that comes and goes, 0 while it is away
    bool m_isOpen = false;
    bool m_isStarted = true;
    bool m_isGarbled = false;       ///< in this spell
    std::size_t m_starts = 0;       ///< in this spell
    std::size_t m_logBefore = 0;    ///< bytes of the log when this spell began
    std::size_t m_eventsRead = 0;   ///< of the session, all in all
    std::size_t m_spellsEvents = 0; ///< those read when this spell began
    std::string m_lastState;        ///< the last event that told a state
    std::string m_illegalEvent;     ///< the last one that made no sense where it came
};

void Run::befall(const Event& event) {
    Hub& hub = hubOf(event);
    switch (event.kind) {
    case Kind::Kill:
        return hub.stop();
    case Kind::Restart:
        return hub.restart();
    case Kind::Drop:
        return hub.dropConnections();
    case Kind::Reset:
        return hub.dropConnections(Hub::Close::Reset);
    case Kind::HalfClose:
        return hub.halfClose();
    case Kind::DropSoon:
        return hub.dropAfterBytes(event.amount * 20,
                                  event.amount % 2 == 0 ? Hub::Close::Orderly : Hub::Close::Reset);
    case Kind::Silence:
        return hub.setSilent(true);
    case Kind::Deafness:
        return hub.setDeaf(true);
    case Kind::Drip:
        return hub.setWriteSize(1 + event.amount % 64, std::chrono::microseconds(200));
    case Kind::Splitting:
        return hub.splitFrames(1 + event.amount % 12, std::chrono::microseconds(200));
    case Kind::Garbage:
        return garble(hub, event.amount);
    case Kind::ShutDoor:
        hub.setAccepting(false);
        return hub.dropConnections();
    case Kind::RefuseLogin:
        hub.refuseLogin(event.amount % 2 == 0 ? tivra_sim::status::BAD_LOGIN
                                              : tivra_sim::status::TOO_MANY_LOGINS,
                        1 + event.amount % 3);
        return hub.dropConnections();
    case Kind::Delay:
        return hub.setAnswerDelay(milliseconds(event.amount % 200));
    case Kind::Busy:
        hub.answerBusy(event.amount % 2 == 0 ? "Subscribe" : "QuerySnapAndSubscribe", 1 + event.amount % 5);
        return hub.dropConnections();
    case Kind::Wrong:
        hub.answerWrong(Hub::ANY_COMMAND, static_cast<Hub::Wrong>(event.amount % 4), 1 + event.amount % 5);
        return hub.dropConnections(Hub::Close::Reset);
    case Kind::NewDictionary:
        return newDictionary(hub, event.amount);
    case Kind::Rights:
        return rights();
    case Kind::ClockJump:
        return tp::Clock::advance(event.amount);
    case Kind::WallClockStep:
        return tp::Clock::stepWallClock(static_cast<double>(event.amount) * 1000.0 - 500000.0);
    case Kind::Toggle:
        return toggle();
    case Kind::Snapshot:
        m_client->send(tivra::QUERYSNAP, 300, "ZBOND");
        return;
    case Kind::StopAndStart:
        stop();
        m_client->start();
        m_isStarted = m_client->isStarted;
        ++m_starts;
        return;
    }
}

void Run::toggle() {
    if (m_toggled == 0) {
        m_toggled = m_client->send(tivra::SUBSCRIBE, 300, TOGGLED);
        return;
    }
    m_client->send(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, std::to_string(m_toggled)}});
    m_toggled = 0;
}

void Run::garble(Hub& hub, unsigned amount) {
    m_isGarbled = true;
    std::string bytes(1 + amount % 300, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(m_dice());
    if (amount % 3 == 0)
        bytes =
            tivra_sim::encodeFrameWithLength("4=200|5=REGION0", static_cast<std::uint32_t>(m_dice())) + bytes;
    hub.sendRaw(bytes);
}

void Run::newDictionary(Hub& hub, unsigned amount) {
    const std::string rest = "|5080=" + std::to_string(20140000 + amount) + ".1|5008=V8.2.1|5001=0";
    hub.script([rest](const tivra_sim::Request& request) -> std::optional<Hub::Frames> {
        if (request.command != "ListAdministrationInfo")
            return std::nullopt;
        return Hub::Frames{tivra_sim::encodeFrame("5026=" + std::to_string(request.tag) + rest)};
    });
    hub.dropConnections();
}

std::optional<std::string> Run::stop() {
    const milliseconds took = m_client->timedStop();
    m_totals.longestStop = std::max(m_totals.longestStop, took);
    if (took > STOP_LIMIT)
        return "a stop took " + std::to_string(took.count()) + " ms";
    return std::nullopt;
}

void Run::clearUp() {
    for (HubGroup& side : m_sides) {
        for (std::size_t member = 0; member < MEMBERS; ++member) {
            Hub& hub = side.hub(member);
            hub.setSilent(false);
            hub.setDeaf(false);
            hub.setAccepting(true);
            hub.setWriteSize(0);
            hub.splitFrames(0);
            hub.setAnswerDelay(milliseconds(0));
            hub.clearRefusals();
            hub.script(nullptr);
            hub.start();
        }
    }
}

std::optional<std::string> Run::comeToRest(const Publisher& publisher) {
    const auto begin = steady_clock::now();
    const std::int64_t number = publisher.number();
    // A start that the weather spoilt is tried again, as an application would.
    while (!m_isStarted && since(begin) < PATIENCE) {
        m_client->start();
        m_isStarted = m_client->isStarted;
        ++m_starts;
    }
    for (std::string unrest = unrestBehind(number); !unrest.empty(); unrest = unrestBehind(number)) {
        if (since(begin) > PATIENCE)
            return unrest;
        std::this_thread::sleep_for(milliseconds(2)); // another look
    }
    m_totals.longestCalm = std::max(m_totals.longestCalm, since(begin));
    m_isGarbled = false;
    m_starts = 0;
    m_spellsEvents = m_eventsRead;
    m_logBefore = m_client->log().size();
    if (const std::string disorder = m_ledger.disorder(); !disorder.empty())
        return "out of order: " + disorder;
    if (!m_illegalEvent.empty())
        return m_illegalEvent;
    return std::nullopt;
}

std::string Run::unrestBehind(std::int64_t number) {
    std::string silent;
    for (const Topic& topic : TOPICS) {
        if (isWanted(topic) && m_ledger.lastOf(topic.symbol) <= number)
            silent += std::string(" ") + topic.symbol;
    }
    if (!silent.empty())
        return "not alive again:" + silent;
    if (const int state = m_client->session().getState(); state != Session::TIVRA_SESSION_ESTABLISHED)
        return "the state is " + std::to_string(state);
    // The session's events come on a thread of their own, maybe after the data.
    readEvents();
    if (m_lastState != "ESTABLISHED")
        return "the last event of a session that is established was " + m_lastState;
    const std::size_t events = m_eventsRead - m_spellsEvents;
    const bool isGarbageTold = m_isGarbled && m_client->log().find("CRIT", m_logBefore) != std::string::npos;
    const std::size_t allowed = isGarbageTold ? std::numeric_limits<std::size_t>::max() : events + m_starts;
    const Ledger::Gaps gaps = m_ledger.settleGaps(TOGGLED, allowed);
    if (gaps.count > allowed)
        return std::to_string(gaps.count) + " gaps in " + gaps.where + ", and " + std::to_string(events) +
               " events";
    m_totals.gaps += gaps.count > 0;
    return "";
}

void Run::readEvents() {
    const std::vector<std::string> events = m_client->sessionEvents();
    for (; m_eventsRead < events.size(); ++m_eventsRead) {
        const std::string& event = events[m_eventsRead];
        // After a teardown the sources are told anew without a loss before.
        if (event.rfind("AVAILABLE_ALLSOURCES", 0) == 0)
            m_lastState = "UNAVAILABLE";
        if (event != "ESTABLISHED" && event != "RECOVERY" && event != "UNAVAILABLE")
            continue;
        const bool isNews = event == "UNAVAILABLE" ? m_lastState != "" : event != m_lastState;
        if (!isNews || (event == "RECOVERY" && m_lastState != "ESTABLISHED"))
            m_illegalEvent = event + " behind " + m_lastState;
        m_lastState = event;
    }
}

} // namespace

std::optional<std::string> run(const Forecast& forecast, Totals& totals) {
    return Run(forecast, totals).play();
}

} // namespace chaos
