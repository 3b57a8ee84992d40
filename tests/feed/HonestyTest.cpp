// Whatever happens to hubs, rights and subscriptions, in whatever order: what a subscription says of its data
// is true. TIVRA_TESTKIT_SEEDS=N runs N seeds in place of two.
#include "FeedFixture.h"

#include <array>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <thread>

#include <gtest/gtest.h>

using tivra::DataState;
using tivra_sim::Record;
namespace token = tivra_sim::token;

namespace {

constexpr int kSource = 100;
constexpr int kRefused = -5;
constexpr std::size_t kSteps = 120;
constexpr std::array<const char*, 4> kSymbols{"AIG", "BAC", "IBM", "SPY"};

bool mayFollow(DataState from, DataState to) {
    static const std::map<DataState, std::set<DataState>> kMoves{
        {DataState::Pending, {DataState::Live, DataState::Refused}},
        {DataState::Live, {DataState::Stale}},
        {DataState::Stale, {DataState::Recovering}},
        {DataState::Recovering, {DataState::Live, DataState::Stale, DataState::Refused}},
        {DataState::Refused, {}}};
    return kMoves.at(from).count(to) != 0;
}

/// What one subscription hears, held against what may be heard. The values of a symbol count up by one, so
/// that a missing one is seen.
class Witness {
public:
    explicit Witness(std::string symbol) : m_symbol(std::move(symbol)) {}

    tivra::SubscriptionHandlers handlers(const tivra::Field& bid) {
        tivra::SubscriptionHandlers handlers;
        handlers.onUpdate = [this, bid](const tivra::Update& update) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (const auto value = update.get<double>(bid))
                see(static_cast<int>(*value), update.kind() == tivra::Update::Kind::Image);
            expect(update.symbol() == m_symbol, "an update of another symbol");
        };
        handlers.onState = [this](const tivra::SubscriptionView&, const tivra::StateChange& change) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            expect(change.from == m_state && mayFollow(change.from, change.to),
                   std::string(nameOf(change.from)) + " to " + nameOf(change.to));
            expect(!(change.to == DataState::Live && m_state == DataState::Recovering) || !m_owesGap,
                   "live again with no gap reported");
            m_state = change.to;
            m_owesGap = m_owesGap || change.to == DataState::Stale;
        };
        handlers.onGap = [this](const tivra::SubscriptionView&, const tivra::Gap& gap) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            expect(m_owesGap, "a gap that nothing has opened");
            expect(gap.from <= gap.to, "a gap that ends before it begins");
            m_owesGap = false;
            m_last.reset();
        };
        return handlers;
    }
    /// After close() has returned.
    void end() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_hasEnded = true;
    }
    [[nodiscard]] const std::string& symbol() const { return m_symbol; }
    [[nodiscard]] bool hasCaughtUp(int newest) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_state == DataState::Refused || (m_state == DataState::Live && m_last == newest);
    }
    [[nodiscard]] std::vector<std::string> faults() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_faults;
    }
    [[nodiscard]] std::string standing() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_symbol + ' ' + nameOf(m_state) + ' ' + std::to_string(m_last.value_or(-1));
    }

private:
    void see(int value, bool isImage) {
        // Before it is live a subscription promises nothing.
        if (m_last && m_state != DataState::Pending)
            expect(value == *m_last + (isImage ? 0 : 1),
                   std::string(isImage ? "image " : "update ") + std::to_string(value) + " after " +
                       std::to_string(*m_last) + ", " + nameOf(m_state));
        expect(m_state != DataState::Refused, "data after a refusal");
        m_last = value;
    }
    void expect(bool isTrue, const std::string& otherwise) {
        if (m_hasEnded)
            m_faults.push_back(m_symbol + ": called after its end");
        if (!isTrue)
            m_faults.push_back(m_symbol + ": " + otherwise);
    }

    const std::string m_symbol;
    std::mutex m_mutex;
    DataState m_state = DataState::Pending;
    std::optional<int> m_last; ///< the newest value, if nothing may be missing since
    bool m_owesGap = false;
    bool m_hasEnded = false;
    std::vector<std::string> m_faults;
};

/// Does one thing after another, as a seed has it.
class Trial {
public:
    explicit Trial(unsigned seed) : m_random(seed) {
        for (const char* const symbol : kSymbols)
            push(symbol);
    }

    void run() {
        for (std::size_t step = 0; step < kSteps; ++step)
            act(pick(100));
        heal();
        for (const auto& open : m_open) {
            Witness& witness = *open.first;
            EXPECT_TRUE(waitFor([&] { return witness.hasCaughtUp(m_newest[witness.symbol()]); }))
                << witness.standing() << " of " << m_newest[witness.symbol()];
        }
        while (!m_open.empty())
            close(0);
        EXPECT_TRUE(waitUntilNoneIsLeft(m_feed));
        for (const std::unique_ptr<Witness>& witness : m_witnesses)
            EXPECT_EQ(witness->faults(), std::vector<std::string>());
    }

private:
    void act(unsigned choice) {
        if (choice < 45)
            push(anySymbol());
        else if (choice < 65)
            subscribe();
        else if (choice < 78 && !m_open.empty())
            close(pick(static_cast<unsigned>(m_open.size())));
        else if (choice < 84)
            m_hub.dropConnections();
        else if (choice < 87)
            m_hub.refuse("QuerySnapAndSubscribe", kRefused, 1);
        else if (choice < 90)
            m_hub.withdrawSource(kSource);
        else if (choice < 94)
            m_hub.grantSource(kSource);
        else
            ask();
    }

    void push(const std::string& symbol) {
        m_hub.pushRecord(Record(kSource, symbol).add(token::BID, ++m_newest[symbol]));
    }
    void subscribe() {
        auto& witness = m_witnesses.emplace_back(std::make_unique<Witness>(anySymbol()));
        m_open.emplace_back(witness.get(),
                            m_feed.subscribe({kSource, witness->symbol()}, witness->handlers(m_bid)));
    }
    void close(std::size_t index) {
        m_open[index].second.close();
        m_open[index].first->end();
        m_open.erase(m_open.begin() + static_cast<std::ptrdiff_t>(index));
    }
    /// Some wait, some don't, and the answer is about what was asked for.
    void ask() {
        const std::string symbol = anySymbol();
        tivra::Answer answer = m_feed.query({kSource, symbol});
        if (pick(2) == 0)
            return;
        const auto result = answer.wait(std::chrono::milliseconds(20));
        for (const tivra::Record& record : result ? result->records() : std::vector<tivra::Record>())
            EXPECT_EQ(record.symbol(), symbol);
    }
    void heal() {
        m_hub.clearRefusals();
        m_hub.grantSource(kSource);
        for (const char* const symbol : kSymbols)
            push(symbol);
    }
    template<class Condition>
    [[nodiscard]] static bool waitFor(Condition&& condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end)
                return false;
            std::this_thread::yield();
        }
        return true;
    }

    unsigned pick(unsigned count) { return std::uniform_int_distribution<unsigned>(0, count - 1)(m_random); }
    std::string anySymbol() { return kSymbols[pick(kSymbols.size())]; }

    std::mt19937 m_random;
    std::map<std::string, int> m_newest;
    std::vector<std::unique_ptr<Witness>> m_witnesses;
    tivra_testkit::StartedHub m_hub;
    tivra::Feed m_feed = tivra::Feed::open(optionsFor(m_hub));
    const tivra::Field m_bid = m_feed.field("BID");
    std::vector<std::pair<Witness*, tivra::Subscription>> m_open;
};

} // namespace

TEST(HonestyTest, WhateverHappensASubscriptionSaysWhatIsTrue) {
    const char* const wanted = std::getenv("TIVRA_TESTKIT_SEEDS");
    const unsigned seeds = wanted != nullptr ? static_cast<unsigned>(std::atoi(wanted)) : 2;
    for (unsigned seed = 1; seed <= seeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Trial(seed).run();
        if (testing::Test::HasFailure())
            return;
    }
}
