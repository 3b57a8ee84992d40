#include "config/SessionConfigImpl.h"

#include <climits>
#include <utility>

#include <gmock/gmock.h>

#include "support/LogCapture.h"

using testing::ElementsAre;
using testing::StartsWith;
using tivra::SessionConfig;
using tivra_internal::SessionConfigImpl;

namespace {

TEST(SessionConfig, ALongIsKeptOrCorrectedWithAWarning) {
    const struct {
        SessionConfig::Parameters parameter;
        long (SessionConfigImpl::*getter)() const;
        std::pair<long, long> low; ///< given and stored
        std::pair<long, long> high;
    } cases[] = {
        {SessionConfig::MAX_USER_THREADS_LONG, &SessionConfigImpl::getMaxUserThreads, {-1, 0}, {4, 4}},
        {SessionConfig::MAX_HUB_THREADS_LONG, &SessionConfigImpl::getMaxHubThreads, {LONG_MIN, 0}, {5, 5}},
        {SessionConfig::MAX_REQUEST_QUEUE_SIZE_LONG,
         &SessionConfigImpl::getMaxRequestQueueSize,
         {99'999, 100'000},
         {50'000'001, 50'000'000}},
        {SessionConfig::MAX_WATCHLIST_SIZE_LONG, &SessionConfigImpl::getMaxWatchlistSize, {0, 1}, {2, 2}},
        {SessionConfig::QUEUE_DEPTH_THRESHOLD_PERCENT_LONG,
         &SessionConfigImpl::getQueueThreshold,
         {0, 1},
         {102, 101}}};
    SessionConfigImpl config;
    for (const bool isHigh : {false, true}) {
        for (const auto& row : cases) {
            const auto [given, stored] = isHigh ? row.high : row.low;
            LogCapture log;
            config.set(row.parameter, given);
            EXPECT_THAT(log.lines(), ElementsAre(StartsWith(given == stored ? "INFO: " : "WARN: ")));
        }
        for (const auto& row : cases)
            EXPECT_EQ((config.*row.getter)(), (isHigh ? row.high : row.low).second) << row.parameter;
    }
}

TEST(SessionConfig, WrongEnumeratorsAndTheDeprecatedOneChangeNothing) {
    LogCapture log;
    SessionConfigImpl config;
    config.set(SessionConfig::RECOVERY_BOOL, false);
    config.set(static_cast<SessionConfig::Parameters>(-1), true);
    config.set(SessionConfig::WATCHLIST_BOOL, 1L);
    EXPECT_FALSE(config.isWatchlistOn());
    EXPECT_THAT(log.lines(), ElementsAre("WARN: RECOVERY_BOOL is deprecated, value will be ignored",
                                         StartsWith("WARN: Invalid parameter (-1)"),
                                         StartsWith("WARN: Invalid parameter (5)")));
}

TEST(SessionConfig, WatchlistRaisesTheRequestQueueUnlessItsSizeWasChosen) {
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
}

} // namespace
