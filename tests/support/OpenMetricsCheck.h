#pragma once

#include <gmock/gmock.h>

#include <regex.h>

#include <array>
#include <cstddef>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

/// The whole and the groups of an extended expression that matches a text, nothing when it doesn't.
inline std::vector<std::string> matched(const std::string& text, const std::string& expression) {
    regex_t compiled;
    EXPECT_EQ(::regcomp(&compiled, ("^" + expression + "$").c_str(), REG_EXTENDED), 0);
    std::array<regmatch_t, 4> groups{};
    std::vector<std::string> found;
    if (::regexec(&compiled, text.c_str(), groups.size(), groups.data(), 0) == 0) {
        for (const regmatch_t& group : groups)
            found.push_back(group.rm_so < 0
                                ? ""
                                : text.substr(static_cast<std::size_t>(group.rm_so),
                                              static_cast<std::size_t>(group.rm_eo - group.rm_so)));
    }
    ::regfree(&compiled);
    return found;
}

/// Holds an exposition against the grammar and the rules of the OpenMetrics text form, as far as counters and
/// gauges without timestamps go. Sums up the samples' names; the first fault is told and ends it.
inline void checkOpenMetrics(const std::string& text, std::set<std::string>& samples) {
    const std::string name = "([a-zA-Z_:][a-zA-Z0-9_:]*)";
    const std::string label = R"re([a-zA-Z_][a-zA-Z0-9_]*="([^"\]|\\["\n])*")re";
    const std::string descriptor = "# (TYPE|UNIT|HELP) " + name + " (.*)";
    const std::string sample = name + "(\\{" + label + "(," + label + ")*\\})? ([0-9]+(\\.[0-9]+)?)";
    std::set<std::string> families;
    std::string family;
    std::map<std::string, std::string> said; // of the present family
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line) && line != "# EOF") {
        std::vector<std::string> match = matched(line, descriptor);
        if (!match.empty()) {
            if (match[2] != family) {
                family = match[2];
                said.clear();
                ASSERT_TRUE(families.insert(family).second) << "the family comes again: " << line;
            }
            ASSERT_TRUE(said.emplace(match[1], match[3]).second) << "said twice: " << line;
            ASSERT_EQ(said.count("sample"), 0U) << "after its sample: " << line;
            ASSERT_THAT(match[3], testing::Not(testing::HasSubstr("\\"))) << "would need care";
            continue;
        }
        match = matched(line, sample);
        ASSERT_FALSE(match.empty()) << "neither descriptor nor sample: " << line;
        ASSERT_EQ(match[1], family + (said["TYPE"] == "counter" ? "_total" : "")) << said["TYPE"];
        ASSERT_THAT(family, testing::EndsWith("_" + said["UNIT"]));
        ASSERT_FALSE(said["HELP"].empty());
        said["sample"] = match[1];
        ASSERT_TRUE(samples.insert(match[1]).second) << "the sample comes again: " << line;
    }
    ASSERT_EQ(line, "# EOF");
    ASSERT_FALSE(std::getline(lines, line)) << "behind the end: " << line;
    ASSERT_EQ(text.back(), '\n');
}
