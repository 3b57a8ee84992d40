#pragma once

#include "PlaybackTape.h"
#include "tivra_sim/HubConfig.h"
#include "tivra_sim/Wire.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tivra_sim {

class Connection;

/// The best quote of one exchange letter, as the events that carried its sides.
struct ExchangeQuote {
    const TapeEvent* bid = nullptr;
    const TapeEvent* ask = nullptr;
};

/// One symbol of the hub with its last values and those who want its updates.
struct SymbolEntry {
    int source = 0;
    std::string symbol;
    std::map<int, std::string> fields;
    std::vector<Connection*> subscribers;
    /// Played events whose values are not in `fields` yet; see HubModel::settle.
    const TapeEvent* lastBid = nullptr;
    const TapeEvent* lastAsk = nullptr;
    const TapeEvent* lastTrade = nullptr;
    std::array<ExchangeQuote, 26> book{};
};

/// What all connections of a hub share: its dictionary, permissions, users and symbols. Used by the hub's
/// thread alone.
class HubModel {
public:
    explicit HubModel(const HubConfig& config);

    [[nodiscard]] const HubConfig& config() const { return m_config; }
    [[nodiscard]] const std::set<int>& boxPermissions() const { return m_box; }
    [[nodiscard]] const std::vector<User>& users() const { return m_users; }
    [[nodiscard]] const User* findUser(std::string_view name) const;
    /// For all users, and on the box when granted.
    void grant(int source);
    void withdraw(int source);
    /// For one user; no effect when there is none of that name.
    void grant(std::string_view user, int source);
    void withdraw(std::string_view user, int source);
    void carry(int source) { m_box.insert(source); }
    void stopCarrying(int source) { m_box.erase(source); }

    [[nodiscard]] SymbolEntry* find(int source, std::string_view symbol);
    /// The entry of a symbol, made when there is none; wildcard subscriptions that match it then cover it.
    SymbolEntry& findOrAdd(int source, std::string_view symbol);
    /// Entries in ascending order of source and symbol for which `predicate` holds.
    [[nodiscard]] std::vector<SymbolEntry*> select(const std::function<bool(const SymbolEntry&)>& predicate);

    /// Brings `fields` up to the events played.
    static void settle(SymbolEntry& entry);
    /// Notes that an event is the newest of its symbol.
    static void note(SymbolEntry& entry, const TapeEvent& event);
    /// Takes over the values of a body. An empty value deletes the field.
    static void store(SymbolEntry& entry, std::string_view body);
    /// The body of a symbol's last values; `tag` below 0 makes it an untagged refresh record.
    [[nodiscard]] static std::string image(SymbolEntry& entry, std::int64_t tag);

    /// Called for each symbol that becomes known.
    void onNewSymbol(std::function<void(SymbolEntry&)> handler) { m_onNewSymbol = std::move(handler); }

private:
    const HubConfig& m_config;
    std::set<int> m_box;
    std::vector<User> m_users;
    std::map<std::pair<int, std::string>, std::unique_ptr<SymbolEntry>, std::less<>> m_symbols;
    std::function<void(SymbolEntry&)> m_onNewSymbol;
};

/// Whether `text` matches `pattern`, where "*" stands for any characters and "?" for one.
[[nodiscard]] bool matchesWildcard(std::string_view pattern, std::string_view text);

} // namespace tivra_sim
