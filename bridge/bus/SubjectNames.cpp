#include "bus/SubjectNames.h"

#include "bus/BusError.h"

#include <fmt/format.h>

#include <cstdint>
#include <iterator>

namespace tivra_bus {

namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";

bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

std::string subject(std::string_view kind, std::string_view rest) {
    // One is made for each message, and a format would take longer than all else that is done for it here.
    static const std::string lead = fmt::format("tivra.v{}.", kLayoutVersion);
    std::string text;
    text.reserve(lead.size() + kind.size() + 1 + rest.size());
    text += lead;
    text += kind;
    text += '.';
    text += rest;
    return text;
}

std::string ofSymbol(std::string_view kind, int source, std::string_view symbol) {
    return subject(kind, std::to_string(source) + '.' + escapedSymbol(symbol));
}

} // namespace

std::string escapedSymbol(std::string_view symbol) {
    std::string text;
    text.reserve(symbol.size());
    for (const char c : symbol) {
        if (isPlain(c))
            text += c;
        else
            fmt::format_to(std::back_inserter(text), "={:02X}", static_cast<unsigned char>(c));
    }
    return text;
}

std::string unescapedSymbol(std::string_view text) {
    std::string symbol;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isPlain(text[i])) {
            symbol += text[i];
            continue;
        }
        const std::size_t high = i + 2 < text.size() ? kHexDigits.find(text[i + 1]) : std::string_view::npos;
        const std::size_t low = i + 2 < text.size() ? kHexDigits.find(text[i + 2]) : std::string_view::npos;
        if (text[i] != '=' || high == std::string_view::npos || low == std::string_view::npos)
            throw BatchError(fmt::format("a symbol in a subject: \"=\" and two of {} were wanted at byte {}",
                                         kHexDigits, i));
        symbol += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return symbol;
}

std::string tickSubject(unsigned partition) {
    return subject("tick", std::to_string(partition));
}

std::string lastSubject(int source, std::string_view symbol) {
    return ofSymbol("last", source, symbol);
}

std::string liveSubject(int source, std::string_view symbol) {
    return ofSymbol("live", source, symbol);
}

std::string statusSubject(int source) {
    return subject("status", std::to_string(source));
}

unsigned partitionOf(int source, std::string_view symbol, unsigned partitions) {
    std::uint64_t hash = 14695981039346656037U;
    const auto add = [&hash](std::string_view bytes) {
        for (const char c : bytes) {
            hash ^= static_cast<unsigned char>(c);
            hash *= 1099511628211U;
        }
    };
    add(std::to_string(source));
    add(":");
    add(symbol);
    return static_cast<unsigned>(hash % partitions);
}

} // namespace tivra_bus
