#pragma once

#include "tivra_sim/GroupConfig.h"
#include "tivra_sim/Hub.h"
#include "tivra_sim/Manager.h"

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_sim {

class GroupDirectory;

/// Hubs that divide the sources among them and know of each other, each with a port and a thread of its own:
///
///     tivra_sim::HubGroup group(tivra_sim::GroupConfig::realistic(3));
///     group.start();
///     connectTo(group.hostString());
///
/// A client that dials any member is told of the others. All operations may be called from any thread, but
/// for start and stop, which belong to the owner's threads.
class HubGroup {
public:
    /// Throws ConfigError when the configuration is none of a group.
    explicit HubGroup(GroupConfig config = GroupConfig::realistic());
    ~HubGroup();
    HubGroup(const HubGroup&) = delete;
    HubGroup& operator=(const HubGroup&) = delete;

    /// Starts every member that is not configured to be down, the first one last, and then the managers.
    /// Throws what Hub::start and Manager::start throw, with nothing running.
    void start();
    void stop();

    [[nodiscard]] std::size_t size() const { return m_hubs.size(); }
    /// A member, to be watched and driven; one that is down has a port all the same. Throws
    /// std::out_of_range.
    [[nodiscard]] Hub& hub(std::size_t member) { return *m_hubs.at(member); }
    [[nodiscard]] const Hub& hub(std::size_t member) const { return *m_hubs.at(member); }
    [[nodiscard]] std::size_t managerCount() const { return m_managers.size(); }
    /// A manager, to be watched and driven. Throws std::out_of_range.
    [[nodiscard]] Manager& manager(std::size_t index = 0) { return *m_managers.at(index); }
    /// "address:port" of a member.
    [[nodiscard]] std::string hostString(std::size_t member = 0) const { return hub(member).hostString(); }
    /// What a client configures to have a manager find a member.
    [[nodiscard]] std::string managedHostString(std::size_t member = 0, std::size_t manager = 0) const {
        return m_managers.at(manager)->hostString(hub(member).port());
    }

    /// Gives a user a source, or takes it away: first on all members, then each of them tells that user's
    /// connections. Returns how many connections were told.
    std::size_t grant(std::string_view user, int source);
    std::size_t withdraw(std::string_view user, int source);
    /// Makes these members, and no others, carry a source. Nobody is told.
    void carry(int source, const std::set<std::size_t>& members);
    /// Divides a source by patterns among members, which carry it from then on; none ends the division.
    /// Clients learn of it when they connect next.
    void split(int source, const GroupConfig::Split& patterns);
    /// Hub::pushRecord on each member that carries the record's source and has its symbol.
    std::size_t pushRecord(const Record& record);

private:
    std::size_t change(std::string_view user, int source, bool granted);
    void behave(std::size_t member);
    void startManagers();

    GroupConfig m_config;
    std::shared_ptr<GroupDirectory> m_directory;
    std::vector<std::unique_ptr<Hub>> m_hubs;
    std::vector<std::unique_ptr<Manager>> m_managers;
};

} // namespace tivra_sim
