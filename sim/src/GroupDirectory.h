#pragma once

#include "tivra_sim/GroupConfig.h"

#include <regex.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_sim {

/// What the members of a group know of each other: where each listens, what it carries, and which symbols of
/// a split source are whose. All operations may be called from any thread.
class GroupDirectory {
public:
    struct Place {
        std::string host; ///< empty stands for the address that the client connected to
        std::uint16_t port = 0;
    };
    using Patterns = std::map<std::string, std::size_t>;

    explicit GroupDirectory(std::size_t members) : m_members(members) {}

    void setPlace(std::size_t member, Place place);
    void setRole(std::size_t member, Role role);
    void setSources(std::size_t member, std::set<int> sources);
    /// Divides a source by patterns; none ends the division.
    void split(int source, const Patterns& patterns);

    /// Every member but doors, in order.
    [[nodiscard]] std::vector<Place> places() const;
    /// The members that clients dial at once, in order.
    [[nodiscard]] std::vector<Place> dataPlaces() const;
    /// The members that carry a source, but doors.
    [[nodiscard]] std::vector<Place> carriers(int source) const;
    /// The split sources that a member carries, with its patterns.
    [[nodiscard]] std::map<int, std::vector<std::string>> splitsOf(std::size_t member) const;
    /// False when the source is split and the symbol is another member's.
    [[nodiscard]] bool holds(std::size_t member, int source, std::string_view symbol) const;

private:
    struct Member {
        Place place;
        std::set<int> sources;
        Role role = Role::Data;
    };
    template<class Wanted>
    std::vector<Place> placesWhere(Wanted wanted) const;
    /// One pattern; one that does not compile is told to clients and matches nothing.
    struct Rule {
        std::size_t member = 0;
        std::shared_ptr<const regex_t> expression;
    };

    mutable std::mutex m_mutex;
    std::vector<Member> m_members;
    std::map<int, std::map<std::string, Rule>> m_splits;
};

} // namespace tivra_sim
