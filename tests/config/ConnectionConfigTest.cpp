#include <gmock/gmock.h>

#include "HostFixture.h"
#include "config/ParameterTable.h"
#include "support/LogCapture.h"

using testing::ElementsAre;
using tivra::HostConfig;
using namespace tivra_internal;

namespace {

TEST(ConnectionConfig, EveryParameterOfTheTableStartsAtItsDefaultAndTakesAnyValue) {
    HostFixture fixture;
    ConnectionConfigImpl& config = fixture.connections;
    for (const ParameterInfo& info : kHostParameters) {
        const auto parameter = static_cast<HostConfig::Parameters>(info.value);
        if (parameter == HostConfig::BACKUP_BOOL)
            continue;
        SCOPED_TRACE(info.name);
        LogCapture log;
        if (info.type == ParameterType::Long) {
            EXPECT_EQ(config.getLong(parameter, -77), info.defaultValue);
            config.set(parameter, -123L - info.value);
            EXPECT_EQ(config.getLong(parameter, -77), -123L - info.value);
            EXPECT_TRUE(
                log.has(std::string("INFO: ") + info.name + "=" + std::to_string(-123L - info.value)));
        } else {
            const bool initially = config.getBoolean(parameter, info.defaultValue == 0);
            EXPECT_EQ(initially, info.defaultValue != 0);
            config.set(parameter, !initially);
            EXPECT_EQ(config.getBoolean(parameter, initially), !initially);
            EXPECT_TRUE(log.has(std::string("INFO: ") + info.name + "=" + (initially ? "0" : "1")));
        }
        EXPECT_THAT(log.lines(), testing::SizeIs(1));
    }
}

TEST(ConnectionConfig, WrongEnumeratorsChangeNothingAndGiveTheCallersDefault) {
    HostFixture fixture;
    ConnectionConfigImpl& config = fixture.connections;
    LogCapture log;
    config.set(HostConfig::BACKUP_BOOL, true);
    config.set(HostConfig::READ_TIMEOUT_LONG, true);
    config.set(HostConfig::COMPRESSION_BOOL, 0L);
    config.set(static_cast<HostConfig::Parameters>(11), 1L);
    EXPECT_FALSE(config.getBoolean(HostConfig::BACKUP_BOOL, false));
    EXPECT_TRUE(config.getBoolean(HostConfig::QUEUE_SIZE_LONG, true));
    EXPECT_EQ(config.getLong(HostConfig::COMPRESSION_BOOL, 42), 42);
    EXPECT_THAT(log.lines(), ElementsAre("WARN: Invalid parameter (0) passed to ConnectionConfig::set(bool)",
                                         "WARN: Invalid parameter (4) passed to ConnectionConfig::set(bool)",
                                         "WARN: Invalid parameter (1) passed to ConnectionConfig::set(long)",
                                         "WARN: Invalid parameter (11) passed to ConnectionConfig::set(long)",
                                         "WARN: Invalid parameter (0) passed to ConnectionConfig::getBoolean",
                                         "WARN: Invalid parameter (7) passed to ConnectionConfig::getBoolean",
                                         "WARN: Invalid parameter (1) passed to ConnectionConfig::getLong"));
    EXPECT_EQ(config.getLong(HostConfig::READ_TIMEOUT_LONG, 0), 5);
    EXPECT_TRUE(config.getBoolean(HostConfig::COMPRESSION_BOOL, false));
}

TEST(ConnectionConfig, NatPairsStayOneToOneInBothDirections) {
    HostFixture fixture;
    ConnectionConfigImpl& config = fixture.connections;
    LogCapture log;
    fixture.handle->addNATPair(" \t10.0.0.1\r\n", "\v192.168.0.1\f")
        .addNATPair("10.0.0.1", "192.168.0.2")
        .addNATPair("10.0.0.2", "192.168.0.1 ")
        .addNATPair("10.0.0.2", "192.168.0.2");
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            "INFO: Adding NAT pair 10.0.0.1, 192.168.0.1",
            "WARN: Failed to add NAT pair 10.0.0.1, 192.168.0.2: HUB ip 10.0.0.1 already exists in a NAT "
            "pair",
            "WARN: Failed to add NAT pair 10.0.0.2, 192.168.0.1: local ip 192.168.0.1 already exists in a "
            "NAT pair",
            "INFO: Adding NAT pair 10.0.0.2, 192.168.0.2"));
    log.forget();

    EXPECT_EQ(config.getLocalIp("10.0.0.1"), "192.168.0.1");
    EXPECT_EQ(config.getHublIp("192.168.0.1"), "10.0.0.1");
    EXPECT_EQ(config.getLocalIp("10.0.0.2"), "192.168.0.2");
    EXPECT_EQ(config.getHublIp("192.168.0.2"), "10.0.0.2");
    HostConfigImpl& host = fixture.host("10.0.0.1:80");
    EXPECT_EQ(host.getLocalIp("10.0.0.2"), "192.168.0.2");
    EXPECT_EQ(host.getHubIp("192.168.0.2"), "10.0.0.2");
    log.forget();
    EXPECT_EQ(config.getLocalIp("192.168.0.1"), "");
    EXPECT_EQ(config.getHublIp("10.0.0.1"), "");
    EXPECT_THAT(log.lines(), ElementsAre("DBUG: No Local NAT address found for 192.168.0.1",
                                         "DBUG: No HUB NAT address found for 10.0.0.1"));
}

TEST(ConnectionConfig, TrimmingLeavesNothingOfATextOfWhiteSpace) {
    EXPECT_EQ(ConnectionConfigImpl::trimString(" \n\t\v\f\r"), "");
    EXPECT_EQ(ConnectionConfigImpl::trimString(""), "");
    EXPECT_EQ(ConnectionConfigImpl::trimString("a b"), "a b");
}

} // namespace
