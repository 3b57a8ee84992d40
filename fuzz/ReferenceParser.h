#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace KVNAPI {
class Message;
}

namespace fuzz {

struct ParserOptions {
    char terminator = '\3';
    std::size_t headerSize = 6;
    bool names = false;
    bool intoHeader = true;
    bool partCodeInHeader = true;
    bool excludeSymbol = false;
};

/// What the documented format makes of a frame, in the form that describe gives a message; a refusal reads
/// "refused: " and the start of the parser's error text. Written for clearness over the same dictionary, with
/// no code of the library.
[[nodiscard]] std::string referenceParse(std::string_view frame, const ParserOptions& options);

/// A message as text: a line of the header, one of the three present flags, and one for each pair. Doubles
/// stand with their bits.
[[nodiscard]] std::string describe(const KVNAPI::Message& message);

/// The part of a description that a copy of the message shares.
[[nodiscard]] std::string withoutFlags(std::string description);

} // namespace fuzz
