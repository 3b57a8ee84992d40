#include "tivra_sim/GroupConfig.h"

#include <unistd.h>

#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

using namespace tivra_sim;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

/// A text, and what it is refused with.
using Refused = std::vector<std::pair<const char*, const char*>>;

template<typename Config>
void expectRefused(const Refused& rows) {
    for (const auto& [text, reason] : rows)
        EXPECT_THAT([text = text] { static_cast<void>(Config::fromJson(text)); },
                    ThrowsMessage<ConfigError>(HasSubstr(reason)))
            << text;
}

TEST(HubConfig, JsonChangesWhatItNamesAndKeepsTheRest) {
    const HubConfig config = HubConfig::fromJson(R"({
        "port": 4711, "topology": "aggregating", "hubVersion": "V7.3.0", "compression": false,
        "compressionLevel": 6,
        "users": [{"name": "eve", "password": "secret", "permissions": [922, 100], "maxLogins": 2}],
        "heartbeat": {"intervalMs": 250}, "hubStatus": {"enabled": false},
        "symbols": [{"source": 100, "symbol": "X", "fields": {"101": "1.5", "102": 7}}],
        "playback": {"file": "day.csv.gz", "speed": 60, "startWhenSubscriptions": 3},
        "tls": {"certificateFile": "hub.pem", "keyFile": "hub.key", "clientCaFile": "issuer.pem"}})");
    EXPECT_EQ(config.tls.certificateFile + config.tls.keyFile + config.tls.clientCaFile,
              "hub.pemhub.keyissuer.pem");
    EXPECT_EQ(config.port, 4711);
    EXPECT_EQ(config.topology, Topology::Aggregating);
    EXPECT_FALSE(config.compression);
    EXPECT_EQ(config.compressionLevel, 6);
    EXPECT_EQ(config.users.at(0).maxLogins, 2U);
    EXPECT_EQ(config.heartbeat.interval, std::chrono::milliseconds(250));
    EXPECT_TRUE(config.heartbeat.enabled);
    EXPECT_FALSE(config.hubStatus.enabled);
    EXPECT_EQ(config.symbols.at(0).fields, (std::map<int, std::string>{{101, "1.5"}, {102, "7"}}));
    EXPECT_EQ(config.playback.factor, 60.0);
    EXPECT_EQ(config.dictionary.size(), HubConfig::realistic().dictionary.size());
    EXPECT_TRUE(HubConfig::fromJson(R"({"base": "empty"})").dictionary.empty());
}

TEST(HubConfig, EffectiveJsonReadsBackTheSameAndHidesPasswordsWhenAsked) {
    HubConfig config = HubConfig::realistic();
    config.users[0].password = "wonderland";
    config.playback.factor = 2.5;
    const std::string text = config.toJson();
    EXPECT_EQ(HubConfig::fromJson(text).toJson(), text);
    EXPECT_THAT(text, HasSubstr("wonderland"));
    EXPECT_THAT(config.toJson(HubConfig::Passwords::Hide), testing::Not(HasSubstr("wonderland")));
}

TEST(HubConfig, WrongJsonIsRefusedWithTheKeyAndWhatWasExpected) {
    expectRefused<HubConfig>(
        {{"{\"port\": ", "not JSON"},
         {R"({"port": 1e999})", "not JSON"},
         {"[]", "configuration: must be an object"},
         {R"({"prot": 1})", "\"prot\": unknown key; known here: advertisedHost"},
         {R"({"port": 65536})", "\"port\": must be a whole number from 0 to 65535"},
         {R"({"port": 18446744073709551615})", "\"port\": must be a whole number"},
         {R"({"port": 1.5})", "\"port\": must be a whole number"},
         {R"({"topology": "ring"})", "not \"ring\""},
         {R"({"base": "none"})", "\"base\": must be"},
         {R"({"users": {"name": "x"}})", "\"users\": must be a list"},
         {R"({"users": [{"password": "x"}]})", "\"users[0].name\": is missing"},
         {R"({"users": [{"name": "a|b"}]})", "\"users[0].name\": must not hold"},
         {R"({"symbols": [{"source": 1, "symbol": "X", "fields": {"BID": "1"}}]})",
          "\"symbols[0].fields.BID\""},
         {R"({"heartbeat": {"intervalMs": 0}})", "\"heartbeat.intervalMs\": must be a whole number from 1"},
         {R"({"playback": {"speed": "fast"}})", "\"playback.speed\": must be \"full\" or a factor"},
         {R"({"playback": {"speed": 0}})", "\"playback.speed\""},
         {R"({"dictionary": [{"number": 7, "type": "STRING"}]})", "\"dictionary[0].name\": is missing"},
         {R"({"enumerations": [{"token": 5001, "values": [{"value": "x"}]}]})",
          "\"enumerations[0].values[0].value\""}});
    expectRefused<GroupConfig>(
        {{"[]", "configuration: must be an object"},
         {"{}", "1 to 16 members, not 0"},
         {R"({"size": 17})", "\"size\": must be a whole number from 1 to 16"},
         {R"({"size": 1, "members": [{}, {}]})", "\"members\": must not be more than"},
         {R"({"members": {}})", "\"members\": must be a list"},
         {R"({"members": [{}, {"prot": 1}]})", "\"members[1].prot\": unknown key"},
         {R"({"hub": {"port": "x"}, "members": [{}]})", "\"hub.port\""},
         {R"({"members": [{"base": "none"}]})", "\"members[0].base\""},
         {R"({"members": [{"behaviour": {"slow": true}}]})", "\"members[0].behaviour.slow\": unknown key"},
         {R"({"members": [{"behaviour": {"faults": [{"answer": 1}]}}]})", "faults[0].command\": is missing"},
         {R"({"members": [{"behaviour": {"faults": [{"command": "Echo", "answer": "late"}]}}]})",
          "none, wrong-tag, twice, no-status, garbage, not \"late\""},
         {R"({"members": [{"role": "window"}]})", "must be \"data\", \"door\" or \"xref\", not \"window\""},
         {R"({"members": [{}], "managers": [{"port": 65536}]})", "\"managers[0].port\""},
         {R"({"members": [{}], "managers": [{"users": {"x": 1}}]})", "\"managers[0].users.x\""},
         {R"({"members": [{}], "splits": [{"patterns": {"x": 0}}]})", "\"splits[0].source\": is missing"},
         {R"({"members": [{}], "splits": [{"source": 1, "patterns": ["x"]}]})", "\"splits[0].patterns\""},
         {R"({"members": [{}], "splits": [{"source": 1, "patterns": {"x": 1}}]})",
          "pattern \"x\" of source 1 is given to member 1"}});
}

TEST(HubConfig, FileErrorsNameTheFile) {
    const std::string path = testing::TempDir() + "tivra_sim_bad.json" + std::to_string(::getpid());
    std::ofstream(path) << R"({"port": "x"})";
    for (const std::string& file : {path, path + ".absent"})
        EXPECT_THAT([&] { static_cast<void>(HubConfig::fromJsonFile(file)); },
                    ThrowsMessage<ConfigError>(HasSubstr(file)));
}

} // namespace
