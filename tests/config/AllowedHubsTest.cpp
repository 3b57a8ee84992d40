#include "config/AllowedHubs.h"

#include <gmock/gmock.h>

#include "support/LogCapture.h"

using testing::HasSubstr;
using namespace tivra_internal;

namespace {

/// What may be dialled and what not, of a session with these hosts and this list.
struct Rule {
    std::vector<std::string> configured;
    std::string listed;
    std::vector<std::string> inside;
    std::vector<std::string> outside;
};

TEST(AllowedHubs, AreTheConfiguredOnesAndTheirNetworksOrWhatIsListedInstead) {
    for (const Rule& rule :
         {Rule{{"10.1.2.3", "192.168.7.1"},
               "",
               {"10.1.2.3", "10.1.2.0", "10.1.2.255", "192.168.7.200"},
               {"10.1.3.3", "10.1.1.255", "192.168.8.1", "127.0.0.1", "hub.example.org", "", "10.1.2"}},
          Rule{{"127.0.0.1"}, "", {"127.255.255.254", "127.0.0.2"}, {"126.0.0.1", "128.0.0.1"}},
          Rule{{"10.1.2.3"},
               "10.8.0.0/13, 10.9.9.9,172.16.5.4/32,localhost",
               {"10.1.2.3", "10.15.255.255", "10.8.0.0", "172.16.5.4", "127.0.0.1"},
               {"10.1.2.4", "10.16.0.0", "10.7.255.255", "172.16.5.5"}},
          Rule{{"10.1.2.3"}, "0.0.0.0/0", {"1.1.1.1", "127.1"}, {"::1", "1.1.1.1:9"}},
          Rule{{}, "", {}, {"10.1.2.3", "0.0.0.0"}},
          // A host in the middle of a network means the network.
          Rule{{}, "10.1.2.3/24", {"10.1.2.99"}, {"10.1.3.3"}}}) {
        const AllowedHubs allowed(rule.configured, rule.listed);
        for (const std::string& address : rule.inside)
            EXPECT_TRUE(allowed.contain(address)) << address << " in " << rule.listed;
        for (const std::string& address : rule.outside)
            EXPECT_FALSE(allowed.contain(address)) << address << " in " << rule.listed;
    }
}

TEST(AllowedHubs, OfAListThatCantBeMeantAreNoneAndTheLogSaysWhy) {
    for (const char* item : {"10.1.2", "10.1.2.3/33", "10.1.2.3/-1", "10.1.2.3/", "10.1.2.3/24x",
                             "10.1.2.256", "fe80::1", "[::1]", "10.1.2.3:9100", "a b", "1.2.3.4.5", "/8"}) {
        EXPECT_THAT(AllowedHubs::faultOf(std::string("10.0.0.1,") + item), HasSubstr(item));
        LogCapture log;
        const AllowedHubs allowed({}, item);
        EXPECT_TRUE(log.has("WARN: ALLOWED_HUBS_STRING: " + AllowedHubs::faultOf(item))) << item;
        for (const char* address : {"10.1.2.3", "0.0.0.0", "1.2.3.4", "10.1.2.0"})
            EXPECT_FALSE(allowed.contain(address)) << item;
    }
    EXPECT_EQ(AllowedHubs::faultOf("10.0.0.0/8, hub-1.example.org,,"), "");
}

} // namespace
