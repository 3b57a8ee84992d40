#include <climits>

#include <gmock/gmock.h>

#include "HostFixture.h"
#include "config/ParameterTable.h"
#include "support/LogCapture.h"

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

TEST(HostConfig, FirstLongStaysLastBoolCountsAndWrongEnumeratorsChangeNothing) {
    HostFixture fixture;
    HostConfigImpl& host = fixture.host("10.0.0.1:80");
    host.set(HostConfig::READ_TIMEOUT_LONG, 10L);
    host.set(HostConfig::READ_TIMEOUT_LONG, 20L);
    host.set(HostConfig::BACKUP_BOOL, true);
    host.set(HostConfig::BACKUP_BOOL, false);
    LogCapture log;
    for (const int wrong : {-1, static_cast<int>(kHostParameters.size())}) {
        host.set(static_cast<HostConfig::Parameters>(wrong), 1L);
        fixture.connections.set(static_cast<HostConfig::Parameters>(wrong), 1L);
        EXPECT_TRUE(host.getBoolean(static_cast<HostConfig::Parameters>(wrong), true));
    }
    host.set(HostConfig::READ_TIMEOUT_LONG, true);
    host.set(HostConfig::BACKUP_BOOL, 1L);
    fixture.connections.set(HostConfig::BACKUP_BOOL, true);
    fixture.connections.set(HostConfig::COMPRESSION_BOOL, 0L);
    EXPECT_TRUE(fixture.connections.getBoolean(HostConfig::COMPRESSION_BOOL, false));
    EXPECT_EQ(host.getLong(HostConfig::COMPRESSION_BOOL, 42), 42);
    EXPECT_THAT(log.lines(), testing::AllOf(testing::SizeIs(11),
                                            testing::Each(testing::StartsWith("WARN: Invalid parameter ("))));
    EXPECT_EQ(host.getLong(HostConfig::READ_TIMEOUT_LONG, 0), 10);
    EXPECT_FALSE(host.getBoolean(HostConfig::BACKUP_BOOL, true));
}

TEST(HostConfig, ALongIsStoredAsGivenAndUsedWithinItsLimits) {
    const struct {
        HostConfig::Parameters parameter;
        long stored;
        long usable;
    } cases[] = {{HostConfig::CONNECTION_TIMEOUT_LONG, LONG_MIN, 0},
                 {HostConfig::CONNECTION_TIMEOUT_LONG, LONG_MAX, 2'000'000},
                 {HostConfig::CONNECTION_TIMEOUT_LONG, 30, 30},
                 {HostConfig::CONFLATION_INTERVAL_LONG, -1, -1}};
    for (const auto& row : cases) {
        HostFixture fixture;
        const HostConfigImpl& host = fixture.host("10.0.0.1:80");
        fixture.connections.set(row.parameter, row.stored);
        EXPECT_EQ(host.getLong(row.parameter, 0), row.stored);
        EXPECT_EQ(host.getUsableLong(row.parameter), row.usable);
    }
}

TEST(HostConfig, InheritedValuesAreFollowedButNeverWritten) {
    HostFixture fixture;
    HostConfigImpl& leader = fixture.host("10.0.0.1:80");
    HostConfigImpl& follower = fixture.host("10.0.0.2:80");
    leader.set(HostConfig::COMPRESSION_BOOL, false);
    leader.set(HostConfig::READ_TIMEOUT_LONG, 7L);
    leader.set(HostConfig::QUEUE_SIZE_LONG, 3L);
    follower.set(HostConfig::BACKUP_BOOL, true);
    follower.copyParameters(leader);
    follower.copyParameters(follower);
    EXPECT_FALSE(follower.getBoolean(HostConfig::BACKUP_BOOL, false));
    EXPECT_EQ(follower.getLong(HostConfig::READ_TIMEOUT_LONG, 0), 7);

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
    EXPECT_TRUE(fixture.connections.removeHost("10.0.0.1:80", [](std::size_t) { return false; }));
    EXPECT_EQ(follower.getLong(HostConfig::QUEUE_SIZE_LONG, 0), 3);
}

} // namespace
