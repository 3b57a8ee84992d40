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
    void write(const std::string& key, const std::string& value) {
        m_entries[key] = {key, value, ++m_revision};
    }
    void renew(const std::string& name) { write("member." + name, "{}"); }
    void read(LeaseBook& book) {
        std::vector<LeaseEntry> entries;
        for (const auto& [key, entry] : m_entries)
            entries.push_back(entry);
        book.read(entries, m_now);
    }
    /// One round of a bridge: what it holds afterwards.
    void round(LeaseBook& book, std::set<unsigned>& held) {
        renew(book.memberKey().substr(7));
        read(book);
        const LeaseDecision decision = book.decide(held, m_now);
        for (const unsigned partition : decision.lost)
            held.erase(partition);
        for (const unsigned partition : decision.release) {
            write(LeaseBook::leaseKey(partition), LeaseBook::freeValue(1));
            held.erase(partition);
            ++m_moves;
        }
        for (const unsigned partition : decision.take) {
            write(LeaseBook::leaseKey(partition), book.leaseValue(1));
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
    LeaseBook a("a", 16, kLease), b("b", 16, kLease), c("c", 16, kLease);
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

TEST_F(LeaseBookTest, ADeadBridgeIsReplacedAfterItsLeaseAndNotBefore) {
    LeaseBook b("b", 2, kLease);
    renew("a");
    write("lease.0", R"({"holder":"a","epoch":4})");
    write("lease.1", R"({"holder":"a","epoch":4})");
    std::set<unsigned> held;
    read(b);
    m_now += kLease - milliseconds(1);
    round(b, held);
    EXPECT_THAT(held, IsEmpty());
    m_now += milliseconds(1);
    round(b, held);
    EXPECT_THAT(held, ElementsAre(0, 1));
    EXPECT_EQ(b.lease(0).epoch, 4U);
}

TEST_F(LeaseBookTest, AWriterLearnsThatItsLeaseIsTaken) {
    LeaseBook a("a", 1, kLease);
    std::set<unsigned> held;
    round(a, held);
    ASSERT_THAT(held, ElementsAre(0));
    renew("b");
    write("lease.0", R"({"holder":"b","epoch":2})");
    read(a);
    EXPECT_THAT(a.decide(held, m_now).lost, ElementsAre(0));
    EXPECT_THAT(a.decide(held, m_now).take, IsEmpty());
}

TEST_F(LeaseBookTest, EntriesThatNobodyOfUsHasWrittenDoNoHarm) {
    LeaseBook a("a", 2, kLease);
    for (const char* key : {"lease.", "lease.x", "lease.99", "lease.-1", "other"})
        write(key, R"({"holder":"b","epoch":2})");
    write("lease.0", "not JSON");
    write("lease.1", R"({"holder":7,"epoch":-2})");
    std::set<unsigned> held;
    round(a, held);
    EXPECT_THAT(held, ElementsAre(0, 1));
}
