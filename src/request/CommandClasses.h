#pragma once

#include <array>
#include <cstddef>

#include <request/Commands.h>

namespace tivra_internal {

/// One command: its word on the wire and the classes that it belongs to.
struct CommandRow {
    tivra::Commands command;
    const char* word;
    bool query;     ///< asks for the data of symbols
    bool subscribe; ///< stands until it is unsubscribed
    bool snap;      ///< ends with its response
};

/// All commands, each at the index of its value.
inline constexpr std::array<CommandRow, 24> kCommandTable{{
    {tivra::SUBSCRIBE, "Subscribe", false, true, false},
    {tivra::UNSUBSCRIBE, "Unsubscribe", false, false, false},
    {tivra::QUERYDEPTH, "QueryDepth", true, false, true},
    {tivra::QUERYSNAP, "QuerySnap", true, false, true},
    {tivra::QUERYWILDCARD, "QueryWildCard", true, false, true},
    {tivra::QUERYDEPTHANDSUBSCRIBE, "QueryDepthAndSubscribe", true, true, false},
    {tivra::QUERYSNAPANDSUBSCRIBE, "QuerySnapAndSubscribe", true, true, false},
    {tivra::LISTENUMERATION, "ListEnumeration", false, false, true},
    {tivra::LISTAVAILABLETOKENS, "ListAvailableTokens", false, false, true},
    {tivra::LISTADMINISTRATIONINFO, "ListAdministrationInfo", false, false, true},
    {tivra::LISTEXTENDEDEXCHANGEINFO, "ListExtendedExchangeInfo", false, false, true},
    {tivra::SELECTUSERFILTERTOKENS, "SelectUserFilterTokens", false, false, false},
    {tivra::LISTSUBSCRIBEDSYMBOLS, "ListSubscribedSymbols", true, false, true},
    {tivra::QUERYXREF, "QueryXRef", true, false, true},
    {tivra::LISTUSERPERMISSION, "ListUserPermission", false, false, true},
    {tivra::GETACTIVECLIENTSINFO, "GetActiveClientsInfo", false, false, true},
    {tivra::GETALLUSERS, "GetAllUsers", false, false, true},
    {tivra::SETCONFLATIONINTERVAL, "SetConflationInterval", false, false, false},
    {tivra::SUBSCRIBEWILDCARD, "SubscribeWildCard", false, true, false},
    {tivra::QUERYSNAPANDSUBSCRIBEWILDCARD, "QuerySnapAndSubscribeWildCard", true, true, false},
    {tivra::UNSUBSCRIBEWILDCARD, "UnsubscribeWildCard", false, false, false},
    {tivra::ADDALTERNATEINDEX, "AddAlternateIndex", false, false, false},
    {tivra::GETSOURCEPORTDETAILS, "GetSourcePortDetails", true, false, true},
    {tivra::SETL2CONFLATIONINTERVAL, "SetL2ConflationInterval", false, false, false},
}};

static_assert(
    [] {
        std::size_t index = 0;
        for (const CommandRow& row : kCommandTable) {
            if (static_cast<std::size_t>(row.command) != index++)
                return false;
        }
        return true;
    }(),
    "a command isn't at the index of its value");

/// The row of a command; null for a value outside the table.
[[nodiscard]] constexpr const CommandRow* findCommand(tivra::Commands command) noexcept {
    const auto index = static_cast<std::size_t>(command);
    return index < kCommandTable.size() ? &kCommandTable[index] : nullptr;
}

[[nodiscard]] constexpr bool isQueryCommand(tivra::Commands command) noexcept {
    const CommandRow* row = findCommand(command);
    return row != nullptr && row->query;
}

[[nodiscard]] constexpr bool isSubscribeCommand(tivra::Commands command) noexcept {
    const CommandRow* row = findCommand(command);
    return row != nullptr && row->subscribe;
}

[[nodiscard]] constexpr bool isSnapCommand(tivra::Commands command) noexcept {
    const CommandRow* row = findCommand(command);
    return row != nullptr && row->snap;
}

/// Answered by data, be it a list: while that is due nothing that the hub sends may be lost.
[[nodiscard]] constexpr bool isAnsweredByData(tivra::Commands command) noexcept {
    return isQueryCommand(command) || isSnapCommand(command);
}

[[nodiscard]] constexpr bool isUnsubscribeCommand(tivra::Commands command) noexcept {
    return command == tivra::UNSUBSCRIBE || command == tivra::UNSUBSCRIBEWILDCARD;
}

/// The command that ends what this subscribe command has begun.
[[nodiscard]] constexpr tivra::Commands unsubscribeOf(tivra::Commands command) noexcept {
    return command == tivra::SUBSCRIBEWILDCARD ? tivra::UNSUBSCRIBEWILDCARD : tivra::UNSUBSCRIBE;
}

} // namespace tivra_internal
