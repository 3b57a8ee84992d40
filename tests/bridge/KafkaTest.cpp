#include "MockKafka.h"

#include "bus/BatchHeader.h"
#include "bus/BusError.h"
#include "kafka/KafkaLeaseTable.h"
#include "kafka/KafkaNames.h"
#include "kafka/KafkaPublisher.h"
#include "kafka/KafkaTail.h"

#include <tp/Mutex.h>

#include <gmock/gmock.h>

#include <chrono>
#include <map>
#include <optional>
#include <vector>

using namespace tivra_bus;
using bridge_test::MockKafka;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;
using Outcome = SendResult::Outcome;

namespace {

constexpr std::chrono::seconds kPatience{60};

std::string batch(std::uint64_t epoch, std::uint64_t number) {
    BatchHeader header;
    header.epoch = epoch;
    header.batch = number;
    header.time = "2026-11-27T06:00:00.000000Z";
    return headerLine(header);
}

/// Keeps what becomes of what is sent.
class Listener : public SendListener {
public:
    void sent(std::uint64_t tag, const SendResult& result) override {
        const tp::MutexLock lock(m_mutex);
        m_results[tag] = result;
        m_changed.notifyAll();
    }
    SendResult await(std::uint64_t tag) {
        const Clock::time_point deadline = Clock::now() + kPatience;
        const tp::MutexLock lock(m_mutex);
        while (m_results.count(tag) == 0)
            if (!m_changed.waitUntil(m_mutex, deadline))
                return {Outcome::Failed, 0, 0, "no answer at all"};
        return m_results[tag];
    }

private:
    tp::Mutex m_mutex;
    tp::ConditionVariable m_changed;
    std::map<std::uint64_t, SendResult> m_results TP_GUARDED_BY(m_mutex);
};

/// A writer of partition 0.
class Writer {
public:
    Writer(const MockKafka& kafka, const std::string& name) : m_publisher(kafka.address(), name) {}

    SendResult send(const std::string& message, std::uint64_t expected) {
        m_publisher.sendBatch(0, message, expected, {m_listener, ++m_tag});
        return m_listener->await(m_tag);
    }
    [[nodiscard]] StreamEnd end() { return m_publisher.endOf(0); }
    [[nodiscard]] KafkaPublisher& publisher() { return m_publisher; }

private:
    std::shared_ptr<Listener> m_listener = std::make_shared<Listener>();
    std::uint64_t m_tag = 0;
    KafkaPublisher m_publisher;
};

/// Everything of a table that has a value: key, value and revision.
using Rows = std::map<std::string, std::pair<std::string, std::uint64_t>>;
Rows rowsOf(KafkaLeaseTable& table) {
    Rows rows;
    for (const LeaseEntry& entry : table.entries())
        if (!entry.value.empty())
            rows[entry.key] = {entry.value, entry.revision};
    return rows;
}

constexpr std::size_t kLarge = 1'000'000;

/// Puts so many large messages that count for nothing into the log of leases, so that its first are dropped.
void fillLeases(const MockKafka& kafka, std::size_t count) {
    KafkaSends other(kafka.address(), "other");
    const auto listener = std::make_shared<Listener>();
    for (std::uint64_t tag = 0; tag < count; ++tag) {
        other.send({kLeaseTopic, 0, "lease.1", std::string(kLarge, 'x')},
                   [listener, tag](const SendResult& result) { listener->sent(tag, result); });
        ASSERT_EQ(listener->await(tag).outcome, Outcome::Stored);
    }
}
constexpr std::size_t kFilled = MockKafka::kMostPartitionBytes / kLarge + 1;

} // namespace

TEST(KafkaTail, TheHighestEpochCountsAndIsOverWhenTwoHaveWrittenInIt) {
    struct Case {
        std::vector<std::pair<std::string, std::string>> messages; ///< with their writers
        std::uint64_t epoch;
        std::uint64_t batch;
    };
    for (const Case& each : {
             Case{{}, 0, 0}, Case{{{batch(3, 8), "me"}, {batch(3, 9), "me"}}, 3, 9},
             Case{{{batch(3, 9), "me"}, {batch(3, 9), "me"}}, 3, 9},           // sent twice
             Case{{{batch(4, 1), "other"}, {batch(3, 9), "me"}}, 4, 1},        // ours came too late
             Case{{{batch(4, 7), "me"}, {batch(3, 9), "other"}}, 4, 7},        // theirs did
             Case{{{batch(4, 1), "other"}, {batch(4, 1), "me"}}, 5, 0},        // both have taken over
             Case{{{"hello", ""}, {batch(2, 1), "me"}, {"\xff\n", ""}}, 2, 1}, // of somebody else
             Case{{{batch(2, 1), "me"}, {batch(UINT64_MAX, 1), ""}}, 2, 1},    // the same
         }) {
        KafkaTail tail("me");
        for (const auto& [message, writer] : each.messages)
            tail.take(message, writer);
        EXPECT_EQ(tail.end(10).epoch, each.epoch);
        EXPECT_EQ(tail.end(10).batch, each.batch);
        EXPECT_EQ(tail.end(10).position, 10U);
    }
}

TEST(KafkaPublisher, ABatchThatDoesNotComeDirectlyAfterTheExpectedOneIsAConflict) {
    MockKafka kafka;
    Writer old(kafka, "old"), young(kafka, "young");
    EXPECT_EQ(old.end().position, 0U);
    const SendResult first = old.send(batch(1, 1), 0);
    ASSERT_EQ(first.outcome, Outcome::Stored) << first.cause;
    EXPECT_EQ(first.position, 1U);
    // Another takes over, and the old one hears of it with its next batch.
    ASSERT_EQ(young.end().epoch, 1U);
    EXPECT_EQ(young.send(batch(2, 1), 1).position, 2U);
    EXPECT_EQ(old.send(batch(1, 2), 1).outcome, Outcome::Conflict);
    EXPECT_EQ(old.end().epoch, 2U);
    // The new one finds its own batch behind that of the old, and goes on after both.
    EXPECT_EQ(young.send(batch(2, 2), 2).outcome, Outcome::Conflict);
    const StreamEnd end = young.end();
    EXPECT_EQ(end.epoch, 2U);
    EXPECT_EQ(end.batch, 2U);
    EXPECT_EQ(young.send(batch(2, 3), end.position).outcome, Outcome::Stored);
}

TEST(KafkaPublisher, NobodyGoesOnBehindWhatTheBrokerHasLost) {
    MockKafka kafka;
    Writer writer(kafka, "me");
    ASSERT_EQ(writer.send(batch(1, 1), 0).outcome, Outcome::Stored);
    // As if five had been acknowledged.
    EXPECT_EQ(writer.send(batch(1, 6), 5).outcome, Outcome::Conflict);
    EXPECT_GT(writer.end().epoch, 1U);
    EXPECT_EQ(writer.end().epoch, 1U) << "whoever takes it anew goes on from there";
}

TEST(KafkaPublisher, WhatTheBrokerRefusesEndsWithItsCause) {
    MockKafka kafka;
    Writer writer(kafka, "me");
    kafka.refuseNextProduce(RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED);
    const SendResult refused = writer.send(batch(1, 1), 0);
    EXPECT_EQ(refused.outcome, Outcome::Failed);
    EXPECT_THAT(refused.cause, HasSubstr("authorization"));
    EXPECT_EQ(writer.send(std::string(2U << 20, 'x'), 0).outcome, Outcome::TooBig);
    // The client library refuses the topic itself until it has asked the broker once more.
    const Clock::time_point deadline = Clock::now() + kPatience;
    SendResult last = refused;
    while (last.outcome != Outcome::Stored && Clock::now() < deadline)
        last = writer.send(batch(1, 1), writer.end().position);
    EXPECT_EQ(last.outcome, Outcome::Stored) << last.cause;
}

TEST(KafkaPublisher, WhatIsStoredNobodyKnowsWhereIsLookedFor) {
    MockKafka kafka;
    Writer writer(kafka, "me");
    ASSERT_EQ(writer.send(batch(1, 1), 0).outcome, Outcome::Stored);
    // As a broker says that has forgotten where it has put a message that is sent again.
    kafka.refuseNextProduce(RD_KAFKA_RESP_ERR_DUPLICATE_SEQUENCE_NUMBER);
    EXPECT_EQ(writer.send(batch(1, 2), 1).outcome, Outcome::Conflict);
    EXPECT_EQ(writer.end().epoch, 1U) << "the broker has lost nothing";
    kafka.refuseNextProduce(RD_KAFKA_RESP_ERR_DUPLICATE_SEQUENCE_NUMBER);
    EXPECT_THROW((void)writer.publisher().storeDictionary("fields"), UnreadyError);
    EXPECT_EQ(writer.publisher().storeDictionary("fields"), 1U);
}

TEST(KafkaSends, AProducerThatCannotGoOnIsReplacedAndAllThatItHadEnds) {
    MockKafka kafka;
    KafkaSends sends(kafka.address(), "me");
    const auto listener = std::make_shared<Listener>();
    const auto send = [&](std::uint64_t tag) {
        sends.send({kTickTopic, 0, "0", batch(1, tag)},
                   [listener, tag](const SendResult& result) { listener->sent(tag, result); });
    };
    send(1);
    ASSERT_EQ(listener->await(1).outcome, Outcome::Stored);
    kafka.delay(kPatience);
    for (std::uint64_t tag = 2; tag < 50; ++tag)
        send(tag);
    rd_kafka_test_fatal_error(sends.client()->get(), RD_KAFKA_RESP_ERR_OUT_OF_ORDER_SEQUENCE_NUMBER,
                              "a hole");
    for (std::uint64_t tag = 2; tag < 50; ++tag)
        EXPECT_EQ(listener->await(tag).outcome, Outcome::Failed);
    kafka.delay({});
    const Clock::time_point deadline = Clock::now() + kPatience;
    std::uint64_t tag = 50;
    for (send(tag); listener->await(tag).outcome != Outcome::Stored && Clock::now() < deadline; send(++tag)) {
    }
    EXPECT_EQ(listener->await(tag).outcome, Outcome::Stored);
}

TEST(KafkaPublisher, AnotherLayoutIsRefusedWithWhatToDo) {
    MockKafka kafka;
    KafkaPublisher publisher(kafka.address(), "me");
    BusLayout layout;
    layout.partitions = 16;
    try {
        publisher.prepare(layout);
        FAIL() << "two partitions in place of sixteen are taken";
    } catch (const UnreadyError&) {
        FAIL() << "it would be tried again in vain";
    } catch (const BusError& error) {
        EXPECT_THAT(error.what(), HasSubstr("--partitions 2"));
    }
}

TEST(KafkaPublisher, ABrokerThatMayStillComeIsNotReady) {
    KafkaAddress address;
    address.servers = {"127.0.0.1:1"};
    address.patience = std::chrono::milliseconds(200);
    KafkaPublisher publisher(address, "me");
    EXPECT_THROW(publisher.prepare(BusLayout{}), UnreadyError);
}

TEST(KafkaLeaseTable, OfThoseThatReplaceOneRevisionTheFirstCountsForAll) {
    MockKafka kafka;
    KafkaLeaseTable a(kafka.address(), "a"), b(kafka.address(), "b");
    EXPECT_EQ(a.entries().size(), 0U);
    EXPECT_EQ(a.write("lease.0", "of a", 0), 1U);
    EXPECT_EQ(b.write("lease.0", "of b", 0), std::nullopt);
    const Rows first{{"lease.0", {"of a", 1}}};
    EXPECT_EQ(rowsOf(a), first);
    EXPECT_EQ(rowsOf(b), first);
    EXPECT_EQ(b.write("lease.0", "of b", 1), 3U);
    EXPECT_EQ(a.write("lease.0", "of a", 1), std::nullopt);
    KafkaLeaseTable late(kafka.address(), "late");
    for (KafkaLeaseTable* const table : {&a, &b, &late})
        EXPECT_EQ(rowsOf(*table), (Rows{{"lease.0", {"of b", 3}}}));
    a.remove("lease.0");
    EXPECT_EQ(rowsOf(late), Rows());
    EXPECT_EQ(late.write("lease.0", "of late", 5), 6U);
    EXPECT_EQ(rowsOf(b), (Rows{{"lease.0", {"of late", 6}}}));
    // One that is taken for dead may be back by the time that it is taken out.
    EXPECT_EQ(late.write("lease.0", "of late still", 6), 7U);
    b.remove("lease.0");
    EXPECT_EQ(rowsOf(a), (Rows{{"lease.0", {"of late still", 7}}}));
}

TEST(KafkaLeaseTable, WhatWasDroppedIsKnownToNobodyAndWhatIsHeldIsWrittenAgainBefore) {
    MockKafka kafka;
    KafkaLeaseTable a(kafka.address(), "a", {}), b(kafka.address(), "b");
    EXPECT_EQ(a.write("lease.0", "of a", 0), 1U);
    EXPECT_EQ(b.write("lease.1", "of b", 0), 2U);
    fillLeases(kafka, kFilled);
    const Rows rows = rowsOf(a);
    ASSERT_EQ(rows.size(), 0U) << "nobody who begins now sees them";
    const std::optional<std::uint64_t> again = b.write("lease.1", "of b again", 2);
    ASSERT_TRUE(again) << "its writer knows what others don't see any more";
    EXPECT_EQ(a.write("lease.1", "of a", 2), std::nullopt) << "b was first";
    KafkaLeaseTable late(kafka.address(), "late");
    for (KafkaLeaseTable* const table : {&a, &b, &late})
        EXPECT_EQ(rowsOf(*table), (Rows{{"lease.1", {"of b again", *again}}}));
    ASSERT_TRUE(a.write("lease.0", "of a", 0));
    (void)a.entries();
    const Rows kept = rowsOf(late);
    EXPECT_EQ(kept.at("lease.0").second, *again + 3) << "a keeps what it holds";
    EXPECT_EQ(kept.at("lease.1").second, *again);
}

TEST(KafkaLeaseTable, WhoBeginsInTheMiddleOfARaceAgreesWithThoseWhoHaveSeenItsWinner) {
    MockKafka kafka;
    KafkaLeaseTable a(kafka.address(), "a");
    ASSERT_EQ(a.write("lease.0", "of a", 0), 1U);
    ASSERT_EQ(a.write("lease.0", std::string(kLarge, 'a'), 1), 2U);
    KafkaSends loser(kafka.address(), "b");
    const auto listener = std::make_shared<Listener>();
    loser.send({kLeaseTopic, 0, "lease.0", "of b", "1"},
               [listener](const SendResult& result) { listener->sent(1, result); });
    ASSERT_EQ(listener->await(1).position, 3U);
    // The winner's message is dropped, and the loser's is the first that is left.
    fillLeases(kafka, kFilled - 1);
    const std::optional<std::uint64_t> again = a.write("lease.0", "of a", 2);
    ASSERT_TRUE(again);
    KafkaLeaseTable late(kafka.address(), "late");
    for (KafkaLeaseTable* const table : {&a, &late})
        EXPECT_EQ(rowsOf(*table), (Rows{{"lease.0", {"of a", *again}}}));
    EXPECT_EQ(late.write("lease.0", "of late", 3), std::nullopt);
}

TEST(KafkaLeaseTable, WhoMissesThatOthersBeganAnewReadsItAllAgain) {
    MockKafka kafka;
    KafkaLeaseTable a(kafka.address(), "a", {}), b(kafka.address(), "b");
    ASSERT_EQ(b.write("lease.0", "of b", 0), 1U);
    ASSERT_EQ(rowsOf(a).size(), 1U);
    fillLeases(kafka, kFilled);
    KafkaLeaseTable late(kafka.address(), "late");
    ASSERT_EQ(late.entries().size(), 0U);
    std::optional<std::uint64_t> revision = late.write("lease.0", "of late", 0);
    // It reads that while it takes what is dropped for there still.
    ASSERT_TRUE(a.write("member.a", "1", 0));
    for (const char* const value : {"of late", "of late still"}) {
        revision = late.write("lease.0", value, revision.value());
        ASSERT_TRUE(revision);
        (void)a.entries();
    }
    EXPECT_EQ(rowsOf(a).at("lease.0"), std::pair(std::string("of late still"), *revision));
}

TEST(KafkaLeaseTable, RacesThatAreLostKeepNobodyFromWritingAgainWhatItHolds) {
    MockKafka kafka;
    KafkaLeaseTable a(kafka.address(), "a", std::chrono::milliseconds(200)), b(kafka.address(), "b");
    ASSERT_EQ(a.write("lease.0", "of a", 0), 1U);
    ASSERT_EQ(b.write("lease.1", "of b", 0), 2U);
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(10);
    std::uint64_t revision = 1;
    while (revision == 1 && Clock::now() < deadline) {
        ASSERT_EQ(a.write("lease.1", "of a", 0), std::nullopt);
        revision = rowsOf(a).at("lease.0").second;
    }
    EXPECT_GT(revision, 1U);
}

TEST(KafkaLeaseTable, ABrokerThatDoesNotAnswerIsToldAndNothingIsTakenForUnchanged) {
    MockKafka kafka;
    KafkaLeaseTable table(kafka.address(), "a");
    EXPECT_EQ(table.write("member.a", "1", 0), 1U);
    kafka.delay(kPatience);
    EXPECT_THROW((void)table.entries(), UnreadyError);
    EXPECT_THROW((void)table.write("member.a", "2", 1), UnreadyError);
}
