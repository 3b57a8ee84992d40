#pragma once

#include <string>
#include <string_view>

namespace tivra_bus {

/// The version of names and messages, which is in both. A reader refuses another.
inline constexpr unsigned kLayoutVersion = 1;

/// A symbol as a part of a subject: bytes outside letters, digits, "_" and "-" become "=XX", in upper case.
[[nodiscard]] std::string escapedSymbol(std::string_view symbol);
/// The symbol again. @throws BatchError for what escapedSymbol() doesn't make
[[nodiscard]] std::string unescapedSymbol(std::string_view text);

/// "tivra.v1.tick.3"
[[nodiscard]] std::string tickSubject(unsigned partition);
/// "tivra.v1.last.100.IBM"
[[nodiscard]] std::string lastSubject(int source, std::string_view symbol);
/// "tivra.v1.live.100.IBM"
[[nodiscard]] std::string liveSubject(int source, std::string_view symbol);
/// "tivra.v1.status.100"
[[nodiscard]] std::string statusSubject(int source);

/// The partition of a symbol: FNV-1a with 64 bits over "source:symbol", modulo the number of partitions. It
/// never changes, since writers and readers of all versions have to agree.
[[nodiscard]] unsigned partitionOf(int source, std::string_view symbol, unsigned partitions);

} // namespace tivra_bus
