#pragma once

#include "Connection.h"
#include "GroupDirectory.h"
#include "HubModel.h"
#include "tivra_sim/Request.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tivra_sim {

/// What the parts of a running hub work on together. Used by the hub's thread alone.
struct HubState {
    HubState(const HubConfig& config, const GroupDirectory* group_, std::size_t member_)
        : model(config), group(group_), member(member_) {}

    HubModel model;
    /// The group that the hub is a member of, null for a hub of its own.
    const GroupDirectory* group;
    std::size_t member;
    std::vector<std::unique_ptr<Connection>> connections;
    std::uint16_t port = 0;

    /// status::SUCCESS when the hub carries the source and the client's user may have it.
    [[nodiscard]] int sourceStatus(Connection& connection, int source) const;
    /// False for a symbol of a split source that another member of the group has.
    [[nodiscard]] bool holds(const SymbolEntry& entry) const {
        return group == nullptr || group->holds(member, entry.source, entry.symbol);
    }
};

/// Answers requests: one function per command word, each giving the bodies of its answer in order, the one
/// with the status last. Used by the hub's thread alone.
class Responder {
public:
    using Bodies = std::vector<std::string>;

    explicit Responder(HubState& state) : m_state(state) {}

    [[nodiscard]] Bodies answer(Connection& connection, const Request& request);

    /// The body that says nothing but a status under a tag; a tag below 0 is left out.
    [[nodiscard]] static std::string statusBody(std::int64_t tag, int status);

    /// The bodies of an answer that is nothing but a status.
    [[nodiscard]] static Bodies answeredWith(const Request& request, int status) {
        return {statusBody(request.tag, status)};
    }

    /// Whether a login asks for a compressed stream.
    [[nodiscard]] static bool wantsCompression(const Request& login) {
        return login.number(token::COMPRESSION, 0) != 0;
    }

private:
    using Handler = Bodies (Responder::*)(Connection&, const Request&);
    struct Command {
        const char* word;
        Handler handler;
    };
    static const Command kCommands[];

    /// The symbols that a request names, or why it may not have them.
    struct Target {
        int status = status::SUCCESS;
        int source = -1;
        std::string pattern;
        bool isWildcard = false;
        std::vector<SymbolEntry*> entries;
    };
    Target resolve(Connection& connection, const Request& request, bool wildcard);
    std::vector<SymbolEntry*> allowedEntries(Connection& connection, int source,
                                             const std::function<bool(const SymbolEntry&)>& predicate);

    // Conversation.
    Bodies loginUser(Connection&, const Request&);
    Bodies listEnumeration(Connection&, const Request&);
    Bodies setConflationInterval(Connection&, const Request&);
    Bodies setConflationType(Connection&, const Request&);
    Bodies listAdministrationInfo(Connection&, const Request&);
    Bodies listInternalTokens(Connection&, const Request&);
    Bodies getPort(Connection&, const Request&);
    Bodies getAllPorts(Connection&, const Request&);
    Bodies getXrefPort(Connection&, const Request&);
    Bodies listSplitExchanges(Connection&, const Request&);
    Bodies listSystemPermission(Connection&, const Request&);
    Bodies listUserPermission(Connection&, const Request&);
    Bodies succeed(Connection&, const Request&);
    Bodies reportApiStats(Connection&, const Request&);

    // Data.
    Bodies subscribe(Connection&, const Request&);
    Bodies subscribeWildCard(Connection&, const Request&);
    Bodies unsubscribe(Connection&, const Request&);
    Bodies querySnap(Connection&, const Request&);
    Bodies querySnapAndSubscribe(Connection&, const Request&);
    Bodies queryWildCard(Connection&, const Request&);
    Bodies querySnapAndSubscribeWildCard(Connection&, const Request&);
    Bodies queryDepth(Connection&, const Request&);
    Bodies queryDepthAndSubscribe(Connection&, const Request&);
    Bodies queryXRef(Connection&, const Request&);

    // Lists and settings.
    Bodies listAvailableTokens(Connection&, const Request&);
    Bodies listExtendedExchangeInfo(Connection&, const Request&);
    Bodies listSubscribedSymbols(Connection&, const Request&);
    Bodies getActiveClientsInfo(Connection&, const Request&);
    Bodies getAllUsers(Connection&, const Request&);
    Bodies getSourcePortDetails(Connection&, const Request&);
    Bodies selectUserFilterTokens(Connection&, const Request&);
    Bodies addAlternateIndex(Connection&, const Request&);

    /// The beginning of each body of an answer.
    [[nodiscard]] static Record answerTo(const Request& request) {
        return std::move(Record().add(token::TAG, static_cast<long long>(request.tag)));
    }
    /// The end of an answer whose one body is `record`.
    [[nodiscard]] static Bodies succeededWith(Record record) {
        return {record.add(token::STATUS, status::SUCCESS).body()};
    }
    [[nodiscard]] static std::string rowBody(const Request& request, const DictionaryRow& row);
    Bodies images(const Target& target, std::int64_t tag, bool subscribeToo, Connection& connection);
    Bodies depth(const Target& target, std::int64_t tag, bool subscribeToo, Connection& connection);
    void enter(Connection& connection, const Target& target, std::int64_t tag);
    [[nodiscard]] const DictionaryRow* findRow(int number) const;
    [[nodiscard]] const DictionaryRow* findRow(std::string_view name) const;
    /// The dictionary rows that a request names by number or name. False when one is unknown.
    bool namedTokens(const Request& request, std::vector<const DictionaryRow*>& rows) const;
    [[nodiscard]] std::string hostOf(const Connection& connection) const;
    /// The hubs that carry a source, as far as this hub knows; for the system source the whole group.
    [[nodiscard]] std::vector<GroupDirectory::Place> placesOf(int source) const;
    [[nodiscard]] const Enumeration* findEnumeration(int token) const;

    HubState& m_state;
};

} // namespace tivra_sim
