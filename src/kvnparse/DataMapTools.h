#pragma once

namespace KVNAPI {

class DataMap;
class Exchange;

/// Conversions of text from a command line to the numbers and exchanges of a map. Each returns 0, or -1 with
/// a text in te_geterror.
class DataMapTools {
public:
    /// An optional sign and digits, 1 or more. `out` is filled even when the number is out of range.
    [[nodiscard]] static int parseId(const char* text, DataMap* map, Exchange* exchange, int& out);
    /// The name of a registered token.
    [[nodiscard]] static int parseToken(const char* text, DataMap* map, Exchange* exchange, int& out);
    /// A permission number, 1 or more.
    [[nodiscard]] static int parsePerm(const char* text, DataMap* map, Exchange*& out);
    /// The older text form of an exchange.
    [[nodiscard]] static int parseExch(const char* text, DataMap* map, Exchange*& out);
};

} // namespace KVNAPI
