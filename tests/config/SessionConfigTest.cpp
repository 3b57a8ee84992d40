#include "config/SessionConfigImpl.h"

#include <climits>

#include <gmock/gmock.h>

#include "support/LogCapture.h"

using testing::ElementsAre;
using tivra::SessionConfig;
using tivra_internal::SessionConfigImpl;

namespace {

struct LongCase {
    SessionConfig::Parameters parameter;
    long (SessionConfigImpl::*getter)() const;
    long value;
    long stored;
    const char* line;
};

class SessionConfigLong : public testing::TestWithParam<LongCase> {};

TEST_P(SessionConfigLong, ValueIsKeptOrCorrectedAndLoggedOnce) {
    LogCapture log;
    SessionConfigImpl config;
    config.set(GetParam().parameter, GetParam().value);
    EXPECT_EQ((config.*GetParam().getter)(), GetParam().stored);
    EXPECT_THAT(log.lines(), ElementsAre(GetParam().line));
}

constexpr auto kUserThreads = &SessionConfigImpl::getMaxUserThreads;
constexpr auto kHubThreads = &SessionConfigImpl::getMaxHubThreads;
constexpr auto kQueueSize = &SessionConfigImpl::getMaxRequestQueueSize;
constexpr auto kWatchlistSize = &SessionConfigImpl::getMaxWatchlistSize;
constexpr auto kThreshold = &SessionConfigImpl::getQueueThreshold;

INSTANTIATE_TEST_SUITE_P(
    Limits, SessionConfigLong,
    testing::Values(
        LongCase{SessionConfig::MAX_USER_THREADS_LONG, kUserThreads, 4, 4, "INFO: MAX_USER_THREADS_LONG=4"},
        LongCase{SessionConfig::MAX_USER_THREADS_LONG, kUserThreads, -1, 0,
                 "WARN: MAX_USER_THREADS_LONG set to invalid value of -1; will set to default of 0"},
        LongCase{SessionConfig::MAX_HUB_THREADS_LONG, kHubThreads, 0, 0, "INFO: MAX_HUB_THREADS_LONG=0"},
        LongCase{
            SessionConfig::MAX_HUB_THREADS_LONG, kHubThreads, LONG_MIN, 0,
            "WARN: MAX_HUB_THREADS_LONG set to invalid value of -9223372036854775808; will set to default "
            "of 0"},
        LongCase{SessionConfig::MAX_REQUEST_QUEUE_SIZE_LONG, kQueueSize, 99999, 100000,
                 "WARN: MAX_REQUEST_QUEUE_SIZE_LONG set to invalid value of 99999; will set to default of "
                 "100000"},
        LongCase{SessionConfig::MAX_REQUEST_QUEUE_SIZE_LONG, kQueueSize, 50000000, 50000000,
                 "INFO: MAX_REQUEST_QUEUE_SIZE_LONG=50000000"},
        LongCase{SessionConfig::MAX_REQUEST_QUEUE_SIZE_LONG, kQueueSize, 50000001, 50000000,
                 "WARN: MAX_REQUEST_QUEUE_SIZE_LONG set to invalid value of 50000001; will set to maximum of "
                 "50000000"},
        LongCase{SessionConfig::MAX_WATCHLIST_SIZE_LONG, kWatchlistSize, 0, 1,
                 "WARN: MAX_WATCHLIST_SIZE_LONG set to invalid value of 0; will set to minimum of 1"},
        LongCase{SessionConfig::MAX_WATCHLIST_SIZE_LONG, kWatchlistSize, 1, 1,
                 "INFO: MAX_WATCHLIST_SIZE_LONG=1"},
        LongCase{
            SessionConfig::QUEUE_DEPTH_THRESHOLD_PERCENT_LONG, kThreshold, 0, 1,
            "WARN: QUEUE_DEPTH_THRESHOLD_PERCENT_LONG set to invalid value of 0; will set to minimum of 1"},
        LongCase{SessionConfig::QUEUE_DEPTH_THRESHOLD_PERCENT_LONG, kThreshold, 101, 101,
                 "INFO: QUEUE_DEPTH_THRESHOLD_PERCENT_LONG=101"},
        LongCase{
            SessionConfig::QUEUE_DEPTH_THRESHOLD_PERCENT_LONG, kThreshold, 102, 101,
            "WARN: QUEUE_DEPTH_THRESHOLD_PERCENT_LONG set to invalid value of 102; will set to maximum of "
            "101"}));

TEST(SessionConfig, WrongEnumeratorsAndTheDeprecatedOneChangeNothing) {
    LogCapture log;
    SessionConfigImpl config;
    config.set(SessionConfig::RECOVERY_BOOL, false);
    config.set(SessionConfig::MAX_USER_THREADS_LONG, true);
    config.set(static_cast<SessionConfig::Parameters>(-1), true);
    config.set(SessionConfig::WATCHLIST_BOOL, 1L);
    config.set(static_cast<SessionConfig::Parameters>(8), 1L);
    EXPECT_EQ(config.getMaxUserThreads(), 0);
    EXPECT_FALSE(config.isWatchlistOn());
    EXPECT_THAT(log.lines(),
                ElementsAre("WARN: RECOVERY_BOOL is deprecated, value will be ignored",
                            "WARN: Invalid parameter (2) passed to SessionConfigImpl::set(bool)",
                            "WARN: Invalid parameter (-1) passed to SessionConfigImpl::set(bool)",
                            "WARN: Invalid parameter (5) passed to SessionConfigImpl::set(long)",
                            "WARN: Invalid parameter (8) passed to SessionConfigImpl::set(long)"));
}

TEST(SessionConfig, WatchlistRaisesTheRequestQueueUnlessItsSizeWasChosen) {
    LogCapture log;
    SessionConfigImpl untouched;
    untouched.set(SessionConfig::WATCHLIST_BOOL, false);
    EXPECT_EQ(untouched.getMaxRequestQueueSize(), 100000);
    untouched.set(SessionConfig::WATCHLIST_BOOL, true);
    EXPECT_EQ(untouched.getMaxRequestQueueSize(), 10000000);
    untouched.set(SessionConfig::MAX_REQUEST_QUEUE_SIZE_LONG, 300000L);
    EXPECT_EQ(untouched.getMaxRequestQueueSize(), 300000);

    // A size that had to be corrected was chosen all the same.
    for (const long chosen : {200000L, 5L}) {
        SessionConfigImpl config;
        config.set(SessionConfig::MAX_REQUEST_QUEUE_SIZE_LONG, chosen);
        const long before = config.getMaxRequestQueueSize();
        config.set(SessionConfig::WATCHLIST_BOOL, true);
        EXPECT_EQ(config.getMaxRequestQueueSize(), before);
    }
    EXPECT_TRUE(log.has("INFO: WATCHLIST_BOOL=true"));
    EXPECT_TRUE(log.has("INFO: WATCHLIST_BOOL=false"));
}

} // namespace
