#include "tivra_sim/GroupConfig.h"

namespace tivra_sim {

namespace {

constexpr int kFirstRegion = 200;
constexpr int kSplitSource = 300;
constexpr int kNewsSource = 4100;
constexpr std::size_t kLetters = 26;

Symbol bond(char letter) {
    return {kSplitSource,
            std::string(1, letter) + "BOND",
            {{7, "4"}, {9, "USD"}, {token::BID, "99.5"}, {token::ASK, "99.75"}}};
}

GroupConfig::Split byFirstLetter(std::size_t size) {
    GroupConfig::Split patterns;
    for (std::size_t member = 0; member < size; ++member) {
        const auto first = static_cast<char>('A' + static_cast<char>(member * kLetters / size));
        const auto last = static_cast<char>('A' + static_cast<char>((member + 1) * kLetters / size - 1));
        patterns[std::string("^[") + first + '-' + last + ']'] = member;
    }
    return patterns;
}

} // namespace

GroupConfig GroupConfig::realistic(std::size_t size) {
    if (size < 1 || size > MOST_MEMBERS)
        throw ConfigError("a group has 1 to " + std::to_string(MOST_MEMBERS) + " members, not " +
                          std::to_string(size));
    HubConfig common = HubConfig::realistic();
    common.users[0].permissions.insert(kSplitSource);
    for (std::size_t letter = 0; letter < kLetters; ++letter)
        common.symbols.push_back(bond(static_cast<char>('A' + static_cast<char>(letter))));
    for (std::size_t member = 0; member < size; ++member) {
        const int region = kFirstRegion + static_cast<int>(member);
        common.users[0].permissions.insert(region);
        common.symbols.push_back({region, "REGION" + std::to_string(member), {{token::BID, "1"}}});
    }
    GroupConfig config;
    config.splits[kSplitSource] = byFirstLetter(size);
    for (std::size_t member = 0; member < size; ++member) {
        GroupMember made{common, {}};
        std::set<int>& box = made.hub.boxPermissions;
        box = {SYSTEM_SOURCE, kSplitSource, kFirstRegion + static_cast<int>(member)};
        if (member == 0 || member == size - 1)
            box.insert(kNewsSource);
        for (std::size_t market = 0; market < 3; ++market) {
            if (market % size == member)
                box.insert(100 + static_cast<int>(market));
        }
        config.members.push_back(std::move(made));
    }
    return config;
}

void GroupConfig::check() const {
    if (members.empty() || members.size() > MOST_MEMBERS)
        throw ConfigError("a group has 1 to " + std::to_string(MOST_MEMBERS) + " members, not " +
                          std::to_string(members.size()));
    for (const auto& [source, patterns] : splits) {
        for (const auto& [pattern, member] : patterns) {
            if (member >= members.size())
                throw ConfigError("pattern \"" + pattern + "\" of source " + std::to_string(source) +
                                  " is given to member " + std::to_string(member) +
                                  ", and the last member is " + std::to_string(members.size() - 1));
        }
    }
}

} // namespace tivra_sim
