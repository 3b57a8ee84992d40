#pragma once

#include "tivra_sim/Hub.h"
#include "tivra_sim/HubConfig.h"
#include "tivra_sim/Manager.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tivra_sim {

/// How a member of a group behaves from its start on. All of it can be changed while it runs, see Hub.
struct Behaviour {
    struct Fault {
        std::string command; ///< a command word, or Hub::ANY_COMMAND
        /// The status to refuse with, or how the answer is spoilt; nothing withholds it.
        std::variant<std::monostate, int, Hub::Wrong> answer;
        unsigned times = 0; ///< 0 is for good
    };

    bool isDown = false; ///< it has a port, and nobody listens there
    bool isSilent = false;
    bool isAccepting = true;
    std::chrono::milliseconds answerDelay{0};
    std::vector<Fault> faults;
};

/// What the others tell of a member. It matters behind a connection manager.
enum class Role {
    Data, ///< named wherever hubs are asked for
    Door, ///< named nowhere: a client that was sent there learns of the others, and goes to them
    Xref  ///< for cross references: clients dial it when they need them first
};

struct GroupMember {
    /// Its box permissions are the sources that this member carries. Symbols of other sources, and of split
    /// sources those of other members, are not served.
    HubConfig hub;
    Behaviour behaviour;
    Role role = Role::Data;
};

/// Everything that a group is started with.
struct GroupConfig {
    /// Patterns (extended regular expressions, in any case) and the members that have what they match. Where
    /// several match, the first in the order of the texts decides.
    using Split = std::map<std::string, std::size_t>;
    static constexpr std::size_t MOST_MEMBERS = 16;

    std::vector<GroupMember> members;
    /// Split sources; a member that has a pattern carries the source too.
    std::map<int, Split> splits;
    /// Connection managers that hand out the members. Their ports are the same, so that only the first one's
    /// counts.
    std::vector<ManagerConfig> managers;

    /// A group as one meets it, made of HubConfig::realistic(): every member carries 922 and the source
    /// 200 + its index with a symbol "REGION0", "REGION1" ...; 100, 101 and 102 are on the members 0, 1 and 2
    /// (counted round); the news source 4100 is on the first and the last; source 300 is split among all by
    /// the first letter of its symbols "ABOND" to "ZBOND". The user has all of it but 102.
    [[nodiscard]] static GroupConfig realistic(std::size_t size = 3);

    /// Reads JSON; docs/tools.md tells the keys. Throws ConfigError.
    [[nodiscard]] static GroupConfig fromJson(std::string_view text);
    [[nodiscard]] static GroupConfig fromJsonFile(const std::string& path);
    /// The effective configuration, readable by fromJson when the passwords are shown.
    [[nodiscard]] std::string toJson(HubConfig::Passwords passwords = HubConfig::Passwords::Show) const;

    /// Throws ConfigError when there is no member, too many, or a pattern of a member that there is not.
    void check() const;
};

} // namespace tivra_sim
