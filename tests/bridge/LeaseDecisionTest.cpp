#include "share/LeaseDecision.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace tivra_bus;
using std::chrono::milliseconds;
using testing::ElementsAreArray;

namespace {

using Numbers = std::vector<unsigned>;
constexpr milliseconds kLease{3000};

/// "a" for the process a1 under the name a, "a2" for another one under that name, "" for nobody.
LeaseHolder holderOf(const std::string& text) {
    return text.empty() ? LeaseHolder{} : LeaseHolder{text.substr(0, 1), text.size() > 1 ? text : text + "1"};
}

struct Case {
    const char* what;
    std::vector<std::string> leases; ///< their holders
    std::set<unsigned> held;         ///< by a, who decides
    std::string live, unready, dead; ///< the other members, and a itself where it isn't ready
    Numbers take, release, lost, giveBack;
};

const Case kCases[]{
    {"alone it takes all", {"", "", ""}, {}, "", "", "", {0, 1, 2}, {}, {}, {}},
    {"what is above its share goes", {"a", "a", "a", "a"}, {0, 1, 2, 3}, "b", "", "", {}, {2, 3}, {}, {}},
    {"odd numbers move nothing", {"a", "a", "b"}, {0, 1}, "b", "", "", {}, {}, {}, {}},
    {"the dead are replaced, the live are not", {"a", "b", "c", "c"}, {0}, "b", "", "c", {2}, {}, {}, {}},
    {"a lease of somebody unknown is free", {"a", "x"}, {0}, "", "", "", {1}, {}, {}, {}},
    {"a process that has left its name to another holds nothing",
     {"b2", "b"},
     {},
     "b",
     "",
     "",
     {0},
     {},
     {},
     {}},
    {"its own name without its nonce is another", {"a2", "a"}, {0, 1}, "b", "", "", {}, {}, {0}, {}},
    {"what it doesn't write it takes anew", {"a", "a"}, {0}, "", "", "", {1}, {}, {}, {}},
    {"or gives back where it has enough", {"a", "a", "b", "b"}, {}, "bc", "", "", {0, 1}, {}, {}, {}},
    {"or gives back what is above its share", {"a", "a", "a", "b"}, {0, 1}, "b", "", "", {}, {}, {}, {2}},
    {"who lacks its hubs gives all to one who has them",
     {"a", "a"},
     {0, 1},
     "b",
     "a",
     "",
     {},
     {0, 1},
     {},
     {}},
    {"and takes nothing", {"", "b"}, {}, "b", "a", "", {}, {}, {}, {}},
    {"unless nobody has them", {"a", "", "b", "b"}, {0}, "", "ab", "", {1}, {}, {}, {}},
    {"one that isn't ready has no share", {"a", "a", "b", "b"}, {0, 1}, "", "b", "", {}, {}, {}, {}}};

} // namespace

TEST(LeaseDecision, EachCaseOfTheTable) {
    const std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
    for (const Case& each : kCases) {
        std::vector<Lease> leases;
        for (const std::string& holder : each.leases)
            leases.push_back({holderOf(holder), 1, 1});
        std::map<std::string, Member> members{{"a", {"a1", true, 1, now}}};
        for (const char name : each.live)
            members[{name}] = {std::string{name} + '1', true, 1, now - kLease + milliseconds(1)};
        for (const char name : each.unready)
            members[{name}] = {std::string{name} + '1', false, 1, now};
        for (const char name : each.dead)
            members[{name}] = {std::string{name} + '1', true, 1, now - kLease};
        const LeaseDecision decision = decideLeases(holderOf("a"), each.held, leases, members, kLease, now);
        EXPECT_THAT(decision.take, ElementsAreArray(each.take)) << each.what;
        EXPECT_THAT(decision.release, ElementsAreArray(each.release)) << each.what;
        EXPECT_THAT(decision.lost, ElementsAreArray(each.lost)) << each.what;
        EXPECT_THAT(decision.giveBack, ElementsAreArray(each.giveBack)) << each.what;
    }
}
