#include "share/LeaseBook.h"

#include <gmock/gmock.h>

#include <map>
#include <set>
#include <string>
#include <vector>

using namespace tivra_bus;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using std::chrono::milliseconds;
constexpr milliseconds kLease{3000};

/// The table of leases, and a clock that only tests move.
class LeaseBookTest : public testing::Test {
protected:
    static LeaseHolder holder(const std::string& name) { return {name, name + "1"}; }
    std::uint64_t write(const std::string& key, const std::string& value) {
        m_entries[key] = {key, value, ++m_revision};
        return m_revision;
    }
    void renew(const LeaseBook& book) { write(book.memberKey(), book.memberValue(true)); }
    void writeLease(unsigned partition, const LeaseHolder& holder, std::uint64_t epoch = 1) {
        write(LeaseBook::leaseKey(partition), LeaseBook::leaseValue(holder, epoch));
    }
    [[nodiscard]] std::vector<LeaseEntry> entries() const {
        std::vector<LeaseEntry> entries;
        for (const auto& [key, entry] : m_entries)
            entries.push_back(entry);
        return entries;
    }
    void read(LeaseBook& book) { book.read(entries(), m_now); }
    /// One round of a bridge: what it holds afterwards.
    void round(LeaseBook& book, std::set<unsigned>& held) {
        renew(book);
        read(book);
        const LeaseDecision decision = book.decide(held, m_now);
        for (const unsigned partition : decision.lost)
            held.erase(partition);
        for (const unsigned partition : decision.release) {
            writeLease(partition, {});
            held.erase(partition);
            ++m_moves;
        }
        for (const unsigned partition : decision.take) {
            writeLease(partition, book.self());
            held.insert(partition);
        }
    }

    std::map<std::string, LeaseEntry> m_entries;
    std::uint64_t m_revision = 0;
    LeaseBook::Clock::time_point m_now{};
    int m_moves = 0;
};

} // namespace

TEST_F(LeaseBookTest, ANewBridgeGetsItsShareAndNothingElseMoves) {
    LeaseBook a(holder("a"), 16, kLease), b(holder("b"), 16, kLease), c(holder("c"), 16, kLease);
    std::set<unsigned> ofA, ofB, ofC;
    round(a, ofA);
    EXPECT_THAT(ofA, SizeIs(16));
    for (int i = 0; i < 3; ++i) {
        round(b, ofB);
        round(a, ofA);
    }
    EXPECT_THAT(ofA, SizeIs(8));
    EXPECT_THAT(ofB, SizeIs(8));
    EXPECT_EQ(m_moves, 8);
    for (int i = 0; i < 3; ++i) {
        round(c, ofC);
        round(a, ofA);
        round(b, ofB);
    }
    EXPECT_EQ(ofA.size() + ofB.size() + ofC.size(), 16U);
    EXPECT_THAT(ofC, SizeIs(4));
    EXPECT_EQ(m_moves, 12);
}

TEST_F(LeaseBookTest, ADeadBridgeIsReplacedAfterItsLeaseAndAPauseOfTheTableKillsNobody) {
    LeaseBook a(holder("a"), 2, kLease), b(holder("b"), 2, kLease);
    renew(a);
    writeLease(0, a.self(), 4);
    writeLease(1, a.self(), 4);
    std::set<unsigned> held;
    read(b);
    m_now += 2 * kLease; // the table couldn't be read
    round(b, held);
    EXPECT_THAT(held, IsEmpty());
    for (int i = 0; i < 4; ++i) {
        m_now += kLease / 4 - milliseconds(1);
        round(b, held);
        EXPECT_THAT(held, IsEmpty());
    }
    m_now += milliseconds(4);
    round(b, held);
    EXPECT_THAT(held, ElementsAre(0, 1));
}

TEST_F(LeaseBookTest, ACopyOfTheTableThatLagsTakesNothingAway) {
    LeaseBook a(holder("a"), 1, kLease);
    std::set<unsigned> held;
    round(a, held);
    m_entries.erase(LeaseBook::leaseKey(0));
    const std::vector<LeaseEntry> old = entries();
    writeLease(0, a.self(), 7);
    read(a);
    a.wroteMember(write(a.memberKey(), a.memberValue(true)), true, m_now);
    a.read(old, m_now);
    EXPECT_THAT(a.decide({0}, m_now).lost, IsEmpty());
    EXPECT_EQ(a.lease(0).epoch, 7U);
    EXPECT_EQ(a.memberRevision(), m_revision);
    // One that stays so isn't a copy.
    m_now += kLease;
    a.read(old, m_now);
    EXPECT_THAT(a.decide({0}, m_now).lost, ElementsAre(0));
}

TEST_F(LeaseBookTest, AHolderThatIsMissingWhereItIsJustBeingWrittenIsNotDead) {
    LeaseBook a(holder("a"), 2, kLease), b(holder("b"), 2, kLease);
    writeLease(0, a.self());
    writeLease(1, a.self());
    std::set<unsigned> held;
    for (int i = 0; i < 3; ++i) { // missing, there and missing again
        round(b, held);
        EXPECT_THAT(held, IsEmpty());
        m_now += kLease / 4;
        renew(a);
        if (i == 1)
            m_entries.erase(a.memberKey());
    }
    m_entries.erase(a.memberKey());
    for (int i = 0; i < 4; ++i, m_now += kLease / 4)
        round(b, held);
    EXPECT_THAT(held, SizeIs(2));
}

TEST_F(LeaseBookTest, ANameIsFreeWhenItsProcessIsDeadAndTakenWhenItLives) {
    LeaseBook old({"a", "old"}, 1, kLease), fresh({"a", "new"}, 1, kLease);
    renew(old);
    read(fresh);
    EXPECT_FALSE(fresh.mayUseName(m_now));
    m_now += kLease;
    EXPECT_TRUE(fresh.mayUseName(m_now));
    EXPECT_FALSE(fresh.isNameTaken());
    renew(old);
    read(fresh);
    EXPECT_TRUE(fresh.isNameTaken());
    read(old);
    EXPECT_FALSE(old.isNameTaken());
}

TEST_F(LeaseBookTest, EntriesThatNobodyOfUsHasWrittenDoNoHarm) {
    LeaseBook a(holder("a"), 2, kLease);
    for (const char* key : {"lease.", "lease.x", "lease.99", "lease.-1", "other"})
        write(key, R"({"holder":"b","epoch":2})");
    write("lease.0", "not JSON");
    write("lease.1", R"({"holder":7,"epoch":-2})");
    write("member.b", "not JSON either");
    m_now += kLease;
    std::set<unsigned> held;
    round(a, held);
    m_now += kLease / 3;
    round(a, held);
    EXPECT_THAT(held, SizeIs(1)) << "b may be alive";
}
