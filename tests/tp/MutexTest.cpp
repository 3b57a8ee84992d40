#include <tp/Mutex.h>
#include <tp/Thread.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using tp::LockRank;
using tp::Mutex;
using tp::MutexLock;

TEST(ConditionVariable, WaiterSeesTheChangeAndADeadlinePasses) {
    struct {
        Mutex mutex;
        tp::ConditionVariable changed;
        int turn TP_GUARDED_BY(mutex) = 0;
    } shared;
    tp::Thread other("other", [&] {
        MutexLock lock(shared.mutex);
        while (shared.turn != 1)
            shared.changed.wait(shared.mutex);
        shared.turn = 2;
        shared.changed.notifyAll();
    });
    MutexLock lock(shared.mutex);
    EXPECT_FALSE(shared.changed.waitFor(shared.mutex, std::chrono::microseconds(1)));
    shared.turn = 1;
    shared.changed.notifyOne();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (shared.turn != 2)
        ASSERT_TRUE(shared.changed.waitUntil(shared.mutex, deadline));
    lock.unlock(); // the handed-over lock is released once, and taken again by lock()
    other.join();
    lock.lock();
    EXPECT_EQ(shared.turn, 2);
}

#if TP_CHECK_LOCK_ORDER

std::vector<std::string> s_reports;

void report(const char* held, const char* wanted) {
    s_reports.push_back(std::string(held) + " < " + wanted);
}

class LockOrder : public ::testing::Test {
protected:
    LockOrder() {
        s_reports.clear();
        tp::setLockOrderViolationHandler(report);
    }
    ~LockOrder() override { tp::setLockOrderViolationHandler(nullptr); }

    Mutex first{LockRank{10, "first"}};
    Mutex second{LockRank{20, "second"}};
    Mutex leaf;
    Mutex otherLeaf;
};

TEST_F(LockOrder, RisingOrderIsSilentAlsoBehindAReleaseOutOfOrder) {
    MutexLock a(first);
    {
        const MutexLock b(second);
        const MutexLock c(leaf);
        a.unlock();
    }
    a.lock();
    const MutexLock b(second);
    EXPECT_TRUE(s_reports.empty());
}

TEST_F(LockOrder, FallingAndEqualRanksOfOneThreadAreReported) {
    {
        const MutexLock b(second);
        tp::Thread("other", [&] { const MutexLock a(first); }).join();
        EXPECT_TRUE(s_reports.empty());
        const MutexLock a(first);
    }
    const MutexLock a(leaf);
    const MutexLock b(otherLeaf);
    EXPECT_EQ(s_reports, (std::vector<std::string>{"second < first", "leaf < leaf"}));
}

TEST_F(LockOrder, AMissingLockIsReportedByAssertHeld) {
    MutexLock a(first);
    first.assertHeld();
    EXPECT_TRUE(s_reports.empty());
    a.unlock();
    first.assertHeld();
    EXPECT_EQ(s_reports, std::vector<std::string>{"nothing < first"});
}

#endif

} // namespace
