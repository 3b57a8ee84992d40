#include <climits>

#include <gmock/gmock.h>

#include "HostFixture.h"
#include "config/ParameterTable.h"
#include "support/LogCapture.h"

using testing::ElementsAre;
using tivra::HostConfig;
using namespace tivra_internal;

namespace {

TEST(HostConfig, OwnValueComesBeforeTheConnectionsValueWhichIsFollowedLive) {
    HostFixture fixture;
    HostConfigImpl& own = fixture.host("10.0.0.1:80");
    HostConfigImpl& other = fixture.host("10.0.0.2:80");
    own.set(HostConfig::QUEUE_SIZE_LONG, 8L);
    own.set(HostConfig::COMPRESSION_BOOL, false);
    fixture.connections.set(HostConfig::QUEUE_SIZE_LONG, 16L);
    fixture.connections.set(HostConfig::CONFLATION_INDICATOR_BOOL, true);

    EXPECT_EQ(own.getLong(HostConfig::QUEUE_SIZE_LONG, 0), 8);
    EXPECT_EQ(other.getLong(HostConfig::QUEUE_SIZE_LONG, 0), 16);
    EXPECT_FALSE(own.getBoolean(HostConfig::COMPRESSION_BOOL, true));
    EXPECT_TRUE(other.getBoolean(HostConfig::COMPRESSION_BOOL, false));
    EXPECT_TRUE(own.getBoolean(HostConfig::CONFLATION_INDICATOR_BOOL, false));
}

TEST(HostConfig, FirstLongStaysAndLastBoolCounts) {
    HostFixture fixture;
    HostConfigImpl& host = fixture.host("10.0.0.1:80");
    LogCapture log;
    host.set(HostConfig::READ_TIMEOUT_LONG, 10L);
    host.set(HostConfig::READ_TIMEOUT_LONG, 20L);
    host.set(HostConfig::BACKUP_BOOL, true);
    host.set(HostConfig::BACKUP_BOOL, false);
    EXPECT_EQ(host.getLong(HostConfig::READ_TIMEOUT_LONG, 0), 10);
    EXPECT_TRUE(host.getBoolean(HostConfig::READ_TIMEOUT_LONG, false));
    EXPECT_FALSE(host.getBoolean(HostConfig::BACKUP_BOOL, true));
    EXPECT_THAT(log.lines(),
                ElementsAre("INFO: 10.0.0.1:80: READ_TIMEOUT_LONG=10",
                            "INFO: 10.0.0.1:80: READ_TIMEOUT_LONG=20", "INFO: 10.0.0.1:80: BACKUP_BOOL=true",
                            "INFO: 10.0.0.1:80: BACKUP_BOOL=false"));
}

TEST(HostConfig, WrongEnumeratorsChangeNothingAndGiveTheCallersDefault) {
    HostFixture fixture;
    HostConfigImpl& host = fixture.host("10.0.0.1:80");
    LogCapture log;
    host.set(HostConfig::READ_TIMEOUT_LONG, true);
    host.set(HostConfig::BACKUP_BOOL, 1L);
    host.set(static_cast<HostConfig::Parameters>(11), 1L);
    host.set(static_cast<HostConfig::Parameters>(-1), true);
    EXPECT_EQ(host.getLong(HostConfig::COMPRESSION_BOOL, 42), 42);
    EXPECT_TRUE(host.getBoolean(static_cast<HostConfig::Parameters>(11), true));
    // What the start of a session does for every primary host.
    EXPECT_FALSE(host.getBoolean(HostConfig::BACKUP_BOOL, false));
    EXPECT_THAT(log.lines(),
                ElementsAre("WARN: Invalid parameter (4) passed to HostConfig::set(bool)",
                            "WARN: Invalid parameter (0) passed to HostConfig::set(long)",
                            "WARN: Invalid parameter (11) passed to HostConfig::set(long)",
                            "WARN: Invalid parameter (-1) passed to HostConfig::set(bool)",
                            "WARN: Invalid parameter (1) passed to HostConfig::getLong",
                            "WARN: Invalid parameter (11) passed to ConnectionConfigImpl::getBoolean",
                            "WARN: Invalid parameter (0) passed to ConnectionConfig::getBoolean"));
    EXPECT_STREQ(HostConfigImpl::getParameterName(HostConfig::CONFLATION_TYPE_LONG), "CONFLATION_TYPE_LONG");
    for (const int wrong : {-1, 11}) {
        EXPECT_STREQ(HostConfigImpl::getParameterName(static_cast<HostConfig::Parameters>(wrong)),
                     "UNKNOWN_PARAMETER_NAME");
    }
}

struct ClampCase {
    HostConfig::Parameters parameter;
    long stored;
    long usable;
};

class HostConfigClamp : public testing::TestWithParam<ClampCase> {};

TEST_P(HostConfigClamp, StoredAsGivenAndUsedWithinLimits) {
    HostFixture fixture;
    HostConfigImpl& host = fixture.host("10.0.0.1:80");
    fixture.connections.set(GetParam().parameter, GetParam().stored);
    EXPECT_EQ(host.getLong(GetParam().parameter, 0), GetParam().stored);
    EXPECT_EQ(host.getUsableLong(GetParam().parameter), GetParam().usable);
}

INSTANTIATE_TEST_SUITE_P(Limits, HostConfigClamp,
                         testing::Values(ClampCase{HostConfig::BLOCKING_CONNECTION_TIME_LIMIT_LONG, -1, 0},
                                         ClampCase{HostConfig::BLOCKING_CONNECTION_TIME_LIMIT_LONG, 60001,
                                                   60000},
                                         ClampCase{HostConfig::CONNECTION_TIMEOUT_LONG, LONG_MIN, 0},
                                         ClampCase{HostConfig::CONNECTION_TIMEOUT_LONG, LONG_MAX, 2000000},
                                         ClampCase{HostConfig::READ_TIMEOUT_LONG, -5, 0},
                                         ClampCase{HostConfig::READ_TIMEOUT_LONG, 30, 30},
                                         ClampCase{HostConfig::QUEUE_SIZE_LONG, -3, 0},
                                         ClampCase{HostConfig::CONNECTION_RETRY_LIMIT_LONG, -1, 0},
                                         ClampCase{HostConfig::CONFLATION_INTERVAL_LONG, -1, -1}));

TEST(HostConfig, InheritedValuesAreFollowedButNeverWritten) {
    HostFixture fixture;
    HostConfigImpl& leader = fixture.host("10.0.0.1:80");
    HostConfigImpl& follower = fixture.host("10.0.0.2:80");
    leader.set(HostConfig::COMPRESSION_BOOL, false);
    leader.set(HostConfig::READ_TIMEOUT_LONG, 7L);
    leader.set(HostConfig::QUEUE_SIZE_LONG, 3L);
    follower.set(HostConfig::BACKUP_BOOL, true);
    follower.copyParameters(leader);
    EXPECT_FALSE(follower.getBoolean(HostConfig::BACKUP_BOOL, false));
    EXPECT_EQ(follower.getLong(HostConfig::READ_TIMEOUT_LONG, 0), 7);
    EXPECT_EQ(follower.getLong(HostConfig::QUEUE_SIZE_LONG, 0), 3);

    leader.set(HostConfig::COMPRESSION_BOOL, true);
    EXPECT_TRUE(follower.getBoolean(HostConfig::COMPRESSION_BOOL, false));

    follower.set(HostConfig::COMPRESSION_BOOL, false);
    follower.set(HostConfig::READ_TIMEOUT_LONG, 9L);
    follower.set(HostConfig::READ_TIMEOUT_LONG, 11L);
    EXPECT_TRUE(leader.getBoolean(HostConfig::COMPRESSION_BOOL, false));
    EXPECT_EQ(leader.getLong(HostConfig::READ_TIMEOUT_LONG, 0), 7);
    EXPECT_EQ(follower.getLong(HostConfig::READ_TIMEOUT_LONG, 0), 9);

    // What the leader itself leaves to all connections comes from the leader's.
    HostFixture elsewhere;
    HostConfigImpl& stranger = elsewhere.host("10.0.0.3:80");
    fixture.connections.set(HostConfig::CONNECTION_TIMEOUT_LONG, 17L);
    stranger.copyParameters(leader);
    EXPECT_EQ(stranger.getLong(HostConfig::CONNECTION_TIMEOUT_LONG, 0), 17);

    // The host that led to another may go first.
    EXPECT_TRUE(fixture.connections.removeHost("10.0.0.1:80", [](size_t) { return false; }));
    EXPECT_EQ(follower.getLong(HostConfig::QUEUE_SIZE_LONG, 0), 3);
    follower.copyParameters(follower);
    EXPECT_EQ(follower.getLong(HostConfig::READ_TIMEOUT_LONG, 0), 9);
}

} // namespace
