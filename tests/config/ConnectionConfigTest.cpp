#include <gmock/gmock.h>

#include "HostFixture.h"
#include "config/ParameterTable.h"
#include "support/LogCapture.h"

using tivra::HostConfig;
using namespace tivra_internal;

namespace {

TEST(ConnectionConfig, EachParameterStartsAtItsDefaultAndKeepsItsOwnValue) {
    HostFixture fixture;
    ConnectionConfigImpl& config = fixture.connections;
    for (const bool isSet : {false, true}) {
        for (const ParameterInfo& info : kHostParameters) {
            const auto parameter = static_cast<HostConfig::Parameters>(info.value);
            const bool isOn = (info.defaultValue != 0) != isSet;
            if (info.type == ParameterType::Long) {
                EXPECT_EQ(config.getLong(parameter, -77), isSet ? -123L - info.value : info.defaultValue);
                config.set(parameter, -123L - info.value);
            } else if (info.type == ParameterType::String) {
                EXPECT_EQ(config.getString(parameter), isSet ? info.name : "");
                config.set(parameter, std::string(info.name));
            } else if (parameter != HostConfig::BACKUP_BOOL) {
                EXPECT_EQ(config.getBoolean(parameter, !isOn), isOn) << info.name;
                config.set(parameter, info.defaultValue == 0);
            }
        }
    }
}

TEST(ConnectionConfig, NatPairsStayOneToOneInBothDirections) {
    HostFixture fixture;
    LogCapture log;
    fixture.handle->addNATPair(" \t10.0.0.1\r\n", "\v192.168.0.1\f")
        .addNATPair("10.0.0.1", "192.168.0.2")
        .addNATPair("10.0.0.2", "192.168.0.1 ")
        .addNATPair("10.0.0.2", "192.168.0.2")
        .addNATPair(" \n\t\v\f\r", "192.168.0.3");
    const std::string start = "WARN: Failed to add NAT pair ";
    EXPECT_THAT(log.lines(),
                testing::ElementsAre(
                    "INFO: Adding NAT pair 10.0.0.1, 192.168.0.1",
                    start + "10.0.0.1, 192.168.0.2: HUB ip 10.0.0.1 already exists in a NAT pair",
                    start + "10.0.0.2, 192.168.0.1: local ip 192.168.0.1 already exists in a NAT pair",
                    "INFO: Adding NAT pair 10.0.0.2, 192.168.0.2", "INFO: Adding NAT pair , 192.168.0.3"));
    const HostConfigImpl& host = fixture.host("10.0.0.1:80");
    for (const std::string last : {"1", "2"}) {
        EXPECT_EQ(host.getLocalIp("10.0.0." + last), "192.168.0." + last);
        EXPECT_EQ(host.getHubIp("192.168.0." + last), "10.0.0." + last);
    }
    EXPECT_EQ(host.getLocalIp("192.168.0.1"), "");
    EXPECT_EQ(host.getHubIp("10.0.0.1"), "");
}

} // namespace
