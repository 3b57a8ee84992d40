// A bridge with an engine in memory, of which a part fails.
#include "run/Bridge.h"
#include "bridge/FakeBus.h"
#include "feed/FeedFixture.h"
#include "share/LeaseShare.h"

#include <gmock/gmock.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

using namespace tivra_bus;
using bridge_test::FakeBus;
using testing::HasSubstr;

namespace {

/// The table of leases, to which the test writes too.
class FakeTable : public LeaseTable {
public:
    std::vector<LeaseEntry> entries() override {
        if (whileReading)
            whileReading();
        const tp::MutexLock lock(m_mutex);
        std::vector<LeaseEntry> entries;
        for (const auto& [key, entry] : m_entries)
            entries.push_back(entry);
        return entries;
    }
    std::optional<std::uint64_t> write(const std::string& key, const std::string& value,
                                       std::uint64_t revision) override {
        const tp::MutexLock lock(m_mutex);
        if (m_isDown) {
            m_vainWrites += key.starts_with("lease.") ? 1 : 0;
            throw BusError("no answer");
        }
        LeaseEntry& entry = m_entries[key];
        if (entry.revision != revision)
            return std::nullopt;
        entry = {key, value, ++m_revision};
        if (std::exchange(m_losesAnswer, false))
            throw BusError("no answer");
        return m_revision;
    }
    void remove(const std::string& key) override { put(key, ""); }
    void put(const std::string& key, const std::string& value) {
        const tp::MutexLock lock(m_mutex);
        m_entries[key] = {key, value, ++m_revision};
    }
    /// Every write waits in vain meanwhile.
    void setDown(bool isDown) {
        const tp::MutexLock lock(m_mutex);
        m_isDown = isDown;
    }
    /// The next write is stored all the same.
    void loseAnswer() {
        const tp::MutexLock lock(m_mutex);
        m_losesAnswer = true;
    }
    /// To leases.
    [[nodiscard]] int vainWrites() const {
        const tp::MutexLock lock(m_mutex);
        return m_vainWrites;
    }
    [[nodiscard]] LeaseEntry entry(const std::string& key) const {
        const tp::MutexLock lock(m_mutex);
        const auto found = m_entries.find(key);
        return found == m_entries.end() ? LeaseEntry{} : found->second;
    }

    std::function<void()> whileReading; ///< set before another thread reads

private:
    mutable tp::Mutex m_mutex;
    std::map<std::string, LeaseEntry> m_entries TP_GUARDED_BY(m_mutex);
    std::uint64_t m_revision TP_GUARDED_BY(m_mutex) = 0;
    bool m_isDown TP_GUARDED_BY(m_mutex) = false;
    bool m_losesAnswer TP_GUARDED_BY(m_mutex) = false;
    int m_vainWrites TP_GUARDED_BY(m_mutex) = 0;
};

class BridgeTest : public FeedTest {
protected:
    static constexpr unsigned kPartitions = 4;

    static BridgeOptions options() {
        BridgeOptions options;
        options.name = "a";
        options.layout.partitions = kPartitions;
        options.instruments = {{100, "IBM"}, {100, "AIG"}, {100, "BAC"}};
        return options;
    }
    static bool waitUntil(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::yield();
        }
        return true;
    }

    FakeBus bus;
    FakeTable table;
    LeaseShare share{table, "a", kPartitions, std::chrono::seconds(3)};
};

} // namespace

TEST_F(BridgeTest, APartitionThatCannotBeReadHoldsUpNoOtherAndNoRenewal) {
    bus.makeUnreadable(1);
    bus.setStream(2, {"hello"});
    {
        const Bridge bridge(options(), feed, bus, share,
                            [this](const std::string& line) { story.add(line); });
        EXPECT_TRUE(waitUntil([&] { return bridge.status().partitions == std::vector<unsigned>{0, 2, 3}; }));
        EXPECT_TRUE(story.waitFor("partition 1: its end can't be read; tried again"));
        EXPECT_EQ(bridge.status().troubled, 1U);
        const std::uint64_t before = table.entry("member.a").revision;
        EXPECT_TRUE(waitUntil([&] { return table.entry("member.a").revision > before; }));
        EXPECT_TRUE(waitUntil([&] { return bus.stream(2).size() >= 2; }));
        table.put("member.b", R"({"nonce":"b","ready":true})");
        table.put(LeaseBook::leaseKey(1), R"({"holder":"b","nonce":"b","epoch":1})");
        EXPECT_TRUE(waitUntil([&] { return bridge.status().troubled == 0; })) << "another writes it by now";
    }
    EXPECT_EQ(table.entry("member.a").value, "");
    for (const unsigned partition : {0U, 2U, 3U})
        EXPECT_THAT(table.entry(LeaseBook::leaseKey(partition)).value, HasSubstr(R"("holder":"")"));
}

TEST_F(BridgeTest, AfterTheLastEpochNothingIsWrittenThatReadersWouldRefuse) {
    bus.setStream(1, {headerLine({"json", 1, kMostEpoch, 1, 0, 0, "somebody", "now"})});
    const Bridge bridge(options(), feed, bus, share, [this](const std::string& line) { story.add(line); });
    EXPECT_TRUE(waitUntil([&] { return bridge.status().partitions == std::vector<unsigned>{0, 2, 3}; }));
    EXPECT_TRUE(story.waitFor("partition 1: it is in epoch 9007199254740992, after which there is none: "
                              "something else than a bridge has written there; create its stream anew; tried "
                              "again"));
    EXPECT_EQ(bus.stream(1).size(), 1U);
}

TEST_F(BridgeTest, WhereBatchesAndLeasesAreDroppedTheEpochIsAboveAllThatThereWere) {
    // Nothing is left of the batches but their places, and some epochs may have had none.
    bus.setStream(1, {"", "", ""});
    const Bridge bridge(options(), feed, bus, share, [](const std::string&) {});
    ASSERT_TRUE(waitUntil([&] { return bus.stream(1).size() > 3 && bus.stream(2).size() > 0; }));
    EXPECT_GT(headerOf(bus.stream(1)[3]).epoch, 1'000'000U);
    EXPECT_EQ(headerOf(bus.stream(2)[0]).epoch, 1U);
}

TEST_F(BridgeTest, OneThatMayHaveBeenReplacedWritesNoLastValuesUntilItIsSeenAgain) {
    const Bridge bridge(options(), feed, bus, share, [this](const std::string& line) { story.add(line); });
    const auto hasLast = [this](const std::string& text) {
        return bus.last(100, "IBM").message.find(text) != std::string::npos;
    };
    hub.pushRecord(tivra_sim::Record(100, "IBM").add(tivra_sim::token::BID, 21));
    ASSERT_TRUE(waitUntil([&] { return hasLast("\"BID\":21"); })) << bus.last(100, "IBM").message;
    table.setDown(true);
    ASSERT_TRUE(waitUntil([&] { return bridge.status().leaseAge > 2.0; }));
    const unsigned partition = partitionOf(100, "IBM", kPartitions);
    const std::size_t batches = bus.stream(partition).size();
    hub.pushRecord(tivra_sim::Record(100, "IBM").add(tivra_sim::token::BID, 22));
    ASSERT_TRUE(waitUntil([&] { return bus.stream(partition).size() > batches; }));
    // More than once what it takes a last value to be due.
    const double age = bridge.status().leaseAge;
    ASSERT_TRUE(waitUntil([&] { return bridge.status().leaseAge > age + 0.3; }));
    EXPECT_TRUE(hasLast("\"BID\":21")) << bus.last(100, "IBM").message;
    EXPECT_THAT(story.lines(), testing::Not(testing::Contains("the engine answers again")));
    table.setDown(false);
    EXPECT_TRUE(waitUntil([&] { return hasLast("\"BID\":22"); }));
    EXPECT_TRUE(story.waitFor("the engine answers again"));
}

// Also while something else keeps it from looking at the leases.
TEST_F(BridgeTest, OneThatDoesNotHearThatItsEntryWasStoredGoesOnShowingThatItIsAlive) {
    static_cast<void>(share.decide({}, true));
    table.loseAnswer();
    std::set<std::string> faults;
    const auto before = share.confirmed();
    EXPECT_TRUE(waitUntil([&] {
        try {
            share.renew(true);
        } catch (const BusError& error) {
            faults.insert(error.what());
        }
        return share.confirmed() > before;
    }));
    EXPECT_THAT(faults, testing::ElementsAre("no answer", HasSubstr("whose answer was lost")));
}

// As a process is that was stopped: all others seem to have been silent for as long.
TEST_F(BridgeTest, OneThatReadsTheLeasesSlowlyTakesNothingFromThoseThatAreAliveMeanwhile) {
    constexpr auto kLease = std::chrono::milliseconds(200);
    LeaseShare slow(table, "slow", kPartitions, kLease);
    table.put(LeaseBook::leaseKey(1), R"({"holder":"b","nonce":"b","epoch":1})");
    table.whileReading = [&] { table.put("member.b", R"({"nonce":"b","ready":true})"); };
    static_cast<void>(slow.decide({}, true));
    table.whileReading = [&, wakes = std::chrono::steady_clock::now() + 2 * kLease] {
        while (std::chrono::steady_clock::now() < wakes)
            std::this_thread::yield();
        table.put("member.b", R"({"nonce":"b","ready":true})");
    };
    EXPECT_THAT(slow.decide({}, true).take, testing::Not(testing::Contains(1U)));
}

TEST_F(BridgeTest, ADictionaryThatIsNotStoredHoldsUpNothingAndIsTriedAgain) {
    const Bridge bridge(options(), feed, bus, share, [this](const std::string& line) { story.add(line); });
    EXPECT_TRUE(waitUntil([&] { return bridge.status().partitions.size() == kPartitions; }));
    bus.refuseDictionary(true);
    // It is asked for again when the hub is back.
    hub.dropConnections();
    EXPECT_TRUE(story.waitFor("the dictionary can't be stored; tried again"));
    const std::uint64_t before = table.entry("member.a").revision;
    EXPECT_TRUE(waitUntil([&] { return table.entry("member.a").revision > before + 1; }));
    bus.refuseDictionary(false);
    EXPECT_TRUE(waitUntil([&] { return bus.dictionary() == 2; }));
}

TEST_F(BridgeTest, AnEngineThatDoesNotAnswerIsNotWaitedForByEachPartitionAtTheEnd) {
    {
        const Bridge bridge(options(), feed, bus, share, [](const std::string&) {});
        EXPECT_TRUE(waitUntil([&] { return bridge.status().partitions.size() == kPartitions; }));
        table.setDown(true);
    }
    EXPECT_EQ(table.vainWrites(), 1);
}

TEST_F(BridgeTest, OneWhoseNameAnotherLiveProcessHasGivesUp) {
    table.put("member.a", R"({"nonce":"other"})");
    const Bridge bridge(options(), feed, bus, share, [this](const std::string& line) { story.add(line); });
    EXPECT_TRUE(waitUntil([&] {
        table.put("member.a", R"({"nonce":"other"})");
        return !bridge.status().end.empty();
    }));
    EXPECT_TRUE(bridge.status().partitions.empty());
    EXPECT_THAT(table.entry("member.a").value, HasSubstr("other"));
}
