#include "soak/WeatherHubs.h"

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

#include <poll.h>
#include <unistd.h>

#include <tivra_sim/HubGroup.h>

#include "soak/Symbols.h"

namespace tivra_soak {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using tivra_sim::Hub;
using tivra_sim::Record;
namespace token = tivra_sim::token;

constexpr milliseconds kTick{10};

tivra_sim::GroupConfig configOf(std::size_t symbols) {
    tivra_sim::GroupConfig config = tivra_sim::GroupConfig::realistic(kHubs);
    for (std::size_t i = 0; i < symbols; ++i)
        config.members[i % kHubs].hub.symbols.push_back(
            {sourceOfHub(i % kHubs), symbolOf(i), {{token::BID, "0"}}});
    return config;
}

/// One thread plays the records and makes the weather, so that what happens follows from the seed.
class Station {
public:
    Station(const Weather& weather, tivra_sim::HubGroup& group)
        : m_weather(weather), m_group(group), m_random(weather.seed), m_newest(weather.symbols) {}

    /// Until something can be read from there.
    void run(int control) {
        const auto begin = Clock::now();
        auto nextStorm = begin + kBeforeStorms;
        std::uint64_t pushed = 0;
        for (auto tick = begin;; tick += kTick) {
            std::this_thread::sleep_until(tick);
            pollfd asked{control, POLLIN, 0};
            if (::poll(&asked, 1, 0) > 0)
                return;
            endStorms(Clock::now());
            if (Clock::now() >= nextStorm) {
                beginStorm();
                nextStorm = Clock::now() + between(2000, 6000);
            }
            const std::chrono::duration<double> passed = Clock::now() - begin;
            for (const double due = passed.count() * m_weather.rate; static_cast<double>(pushed) < due;
                 ++pushed)
                add(pick(m_newest.size()));
            push();
        }
    }
    /// The fine day after: each hub is as it should be, and each symbol has one more record, behind all that
    /// a full queue has dropped.
    void calm() {
        endStorms(Clock::time_point::max());
        auto tick = Clock::now() + kBeforeStorms;
        const auto perTick = static_cast<std::size_t>(m_weather.rate * 0.01) + 1;
        for (std::size_t index = 0; index < m_newest.size(); ++index) {
            add(index);
            if ((index + 1) % perTick == 0 || index + 1 == m_newest.size()) {
                std::this_thread::sleep_until(tick += kTick);
                push();
            }
        }
    }
    [[nodiscard]] const std::vector<std::int32_t>& newest() const { return m_newest; }

private:
    struct Storm {
        Clock::time_point until;
        std::function<void()> end;
    };
    static constexpr milliseconds kBeforeStorms{5000};
    static constexpr milliseconds kUntilCalm{60'000}; ///< by when all readers are back

    void add(std::size_t index) {
        const std::size_t member = index % kHubs;
        if (m_down.count(member) != 0)
            return;
        const int value = ++m_newest[index];
        m_next[member].push_back(Record(sourceOfHub(member), symbolOf(index))
                                     .add(token::BID, value)
                                     .add(token::ASK, value + 1)
                                     .add(token::BID_SIZE, 100));
    }
    void push() {
        for (std::size_t member = 0; member < kHubs; ++member) {
            if (!m_next[member].empty())
                m_group.hub(member).pushRecords(m_next[member]);
            m_next[member].clear();
        }
    }

    void beginStorm() {
        const std::size_t member = pick(kHubs);
        if (m_storms.count(member) != 0)
            return;
        // Of a source that is withdrawn before they are back, readers hear no word, but that they are
        // refused.
        const bool isCalm = Clock::now() > m_calmAt[member];
        m_calmAt[member] = Clock::now() + kUntilCalm;
        Hub& hub = m_group.hub(member);
        const int source = sourceOfHub(member);
        switch (pick(10)) {
        case 0:
            return hub.dropConnections();
        case 1:
            return hub.dropConnections(Hub::Close::Reset);
        case 2:
            return hub.dropAfterBytes(pick(200'000));
        case 3:
            return hub.answerBusy("QuerySnapAndSubscribe", 3);
        case 4:
            return hub.halfClose();
        case 5:
            hub.stop();
            m_down.insert(member);
            return last(member, between(500, 10'000), [this, member, &hub] {
                hub.start();
                m_down.erase(member);
            });
        case 6:
            hub.setSilent(true);
            return last(member, between(500, 15'000), [&hub] { hub.setSilent(false); });
        case 7:
            if (!isCalm)
                return;
            m_group.withdraw("demo", source);
            return last(member, between(500, 8000),
                        [this, member, source] { m_group.grant("demo", source); });
        case 8:
            hub.setAnswerDelay(between(10, 800));
            return last(member, between(500, 8000), [&hub] { hub.setAnswerDelay(milliseconds(0)); });
        default:
            hub.setWriteSize(700);
            return last(member, between(500, 4000), [&hub] { hub.setWriteSize(0); });
        }
    }
    void last(std::size_t member, milliseconds time, std::function<void()> end) {
        m_storms[member] = {Clock::now() + time, std::move(end)};
    }
    void endStorms(Clock::time_point now) {
        for (auto storm = m_storms.begin(); storm != m_storms.end();) {
            if (storm->second.until > now) {
                ++storm;
                continue;
            }
            storm->second.end();
            m_calmAt[storm->first] = Clock::now() + kUntilCalm;
            storm = m_storms.erase(storm);
        }
    }

    std::size_t pick(std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(m_random);
    }
    milliseconds between(int from, int to) {
        return milliseconds(std::uniform_int_distribution<int>(from, to)(m_random));
    }

    const Weather m_weather;
    tivra_sim::HubGroup& m_group;
    std::mt19937 m_random;
    std::vector<std::int32_t> m_newest;
    std::array<std::vector<Record>, kHubs> m_next; ///< of the present tick
    std::map<std::size_t, Storm> m_storms;         ///< by hub, one at a time
    std::array<Clock::time_point, kHubs> m_calmAt{};
    std::set<std::size_t> m_down;
};

void serve(const Weather& weather, const tivra_bench::ChildProcess::Ends& parent) {
    tivra_sim::HubGroup group(configOf(weather.symbols));
    group.start();
    const std::uint16_t port = group.hub(0).port();
    if (!tivra_bench::writeAll(parent.tell, &port, sizeof port))
        return;
    Station station(weather, group);
    station.run(parent.control);
    station.calm();
    const std::vector<std::int32_t>& newest = station.newest();
    if (!tivra_bench::writeAll(parent.tell, newest.data(), newest.size() * sizeof newest.front()))
        return;
    char byte = 0;
    while (::read(parent.control, &byte, 1) > 0) {
    }
    group.stop();
}

} // namespace

WeatherHubs::WeatherHubs(const Weather& weather)
    : m_symbols(weather.symbols)
    , m_process([weather](const tivra_bench::ChildProcess::Ends& parent) { serve(weather, parent); }) {
    if (!m_process.read(&m_port, sizeof m_port))
        throw std::runtime_error("the process of the hubs did not start");
}

std::vector<std::int32_t> WeatherHubs::calm() {
    std::vector<std::int32_t> newest(m_symbols);
    m_process.write(1);
    if (!m_process.read(newest.data(), newest.size() * sizeof newest.front()))
        throw std::runtime_error("the process of the hubs has ended before its time");
    return newest;
}

} // namespace tivra_soak
