#include "tivra_sim/HubConfig.h"

#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <string>

using namespace tivra_sim;
using testing::HasSubstr;

TEST(HubConfig, RealisticDictionaryHasAllTypesAndNoNumberOrNameTwice) {
    std::map<std::string, int> types;
    std::set<int> numbers;
    std::set<std::string> names;
    for (const DictionaryRow& row : HubConfig::realistic().dictionary) {
        ++types[row.type];
        EXPECT_TRUE(numbers.insert(row.number).second) << row.number;
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
    }
    EXPECT_GE(numbers.size(), 200U);
    EXPECT_EQ(types.size(), 8U);
}

TEST(HubConfig, JsonChangesWhatItNamesAndKeepsTheRest) {
    const HubConfig config = HubConfig::fromJson(R"({
        "port": 4711, "topology": "aggregating", "hubVersion": "V7.3.0",
        "users": [{"name": "eve", "password": "secret", "permissions": [922, 100], "maxLogins": 2}],
        "heartbeat": {"intervalMs": 250}, "hubStatus": {"enabled": false},
        "symbols": [{"source": 100, "symbol": "X", "fields": {"101": "1.5", "102": 7}}],
        "playback": {"file": "day.csv.gz", "speed": 60, "startWhenSubscriptions": 3}})");
    EXPECT_EQ(config.port, 4711);
    EXPECT_EQ(config.topology, Topology::Aggregating);
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
    const std::vector<std::pair<std::string, std::string>> cases{
        {"{\"port\": ", "not JSON"},
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
         "\"enumerations[0].values[0].value\""}};
    for (const auto& [text, reason] : cases) {
        try {
            static_cast<void>(HubConfig::fromJson(text));
            ADD_FAILURE() << text << " was taken";
        } catch (const ConfigError& error) {
            EXPECT_THAT(error.what(), HasSubstr(reason)) << text;
        }
    }
}

TEST(HubConfig, FileErrorsNameTheFile) {
    const std::string path = testing::TempDir() + "tivra_sim_bad.json";
    std::ofstream(path) << R"({"port": "x"})";
    for (const std::string& file : {path, path + ".absent"}) {
        try {
            static_cast<void>(HubConfig::fromJsonFile(file));
            ADD_FAILURE() << file << " was taken";
        } catch (const ConfigError& error) {
            EXPECT_THAT(error.what(), HasSubstr(file));
        }
    }
}
