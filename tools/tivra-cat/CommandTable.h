#pragma once

#include <tivra.h>

#include <string_view>

namespace tivra_cat {

/// What one kind of request means to this program.
struct CommandTraits {
    tivra::Commands command;
    const char* name;   ///< as messages to the user call it
    bool isStream;      ///< goes on after its answer, until a limit or a signal ends it
    bool needsSymbol;   ///< makes no sense without a source, a symbol or both
    bool describesFew;  ///< few answers of many fields: the table prints one field per line
    bool carriesSymbol; ///< its messages tell a source and a symbol
};

inline constexpr CommandTraits kCommands[] = {
    {tivra::QUERYSNAP, "snapshot", false, true, true, true},
    {tivra::SUBSCRIBE, "subscribe", true, true, false, true},
    {tivra::QUERYSNAPANDSUBSCRIBE, "subscribe --snapshot", true, true, false, true},
    {tivra::QUERYDEPTH, "depth", false, true, false, true},
    {tivra::QUERYDEPTHANDSUBSCRIBE, "depth --subscribe", true, true, false, true},
    {tivra::QUERYWILDCARD, "wildcard", false, true, false, true},
    {tivra::SUBSCRIBEWILDCARD, "wildcard --updates", true, true, false, true},
    {tivra::QUERYSNAPANDSUBSCRIBEWILDCARD, "wildcard --subscribe", true, true, false, true},
    {tivra::QUERYXREF, "xref", false, true, true, true},
    {tivra::LISTAVAILABLETOKENS, "list tokens", false, false, false, false},
    {tivra::LISTENUMERATION, "list enumerations", false, false, false, false},
    {tivra::LISTADMINISTRATIONINFO, "list admin", false, false, true, false},
    {tivra::LISTEXTENDEDEXCHANGEINFO, "list sources", false, false, true, false},
    {tivra::LISTSUBSCRIBEDSYMBOLS, "list subscriptions", false, false, false, true},
    {tivra::LISTUSERPERMISSION, "list permissions", false, false, true, false},
    {tivra::GETACTIVECLIENTSINFO, "list clients", false, false, true, false},
    {tivra::GETALLUSERS, "list users", false, false, true, false},
    {tivra::GETSOURCEPORTDETAILS, "list ports", false, false, false, true},
};

/// The traits of a command that this program sends.
[[nodiscard]] constexpr const CommandTraits& traitsOf(tivra::Commands command) {
    for (const CommandTraits& traits : kCommands) {
        if (traits.command == command)
            return traits;
    }
    return kCommands[0];
}

/// The row of "list WHAT", null for an unknown word.
[[nodiscard]] constexpr const CommandTraits* findList(std::string_view what) {
    constexpr std::string_view PREFIX = "list ";
    for (const CommandTraits& traits : kCommands) {
        const std::string_view name = traits.name;
        if (name.substr(0, PREFIX.size()) == PREFIX && name.substr(PREFIX.size()) == what)
            return &traits;
    }
    return nullptr;
}

} // namespace tivra_cat
