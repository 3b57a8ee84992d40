#pragma once

#include <cstdint>

namespace KVNAPI {

class DataMap;
class Encoder;
class Token;

/// What every encoder knows of its map: the tokens of a message's header fields.
struct EncoderTokens {
    Token* T_REFRESH = nullptr;
    Token* T_MARKET = nullptr;
    Token* T_SOURCE = nullptr;
    Token* T_SYMBOL = nullptr;
    Token* T_PERM = nullptr;
    DataMap* map = nullptr;       ///< null until the first look-up that succeeded
    std::uint64_t generation = 0; ///< of the map when the tokens were looked up

    /// Fills all from `from`. Returns -1 with a text in te_geterror, and nothing changed, when it lacks one.
    [[nodiscard]] int lookUp(DataMap* from);
    /// Whether there is a map. Binds the owner anew to one that was copied over meanwhile, whose tokens are
    /// gone; false, with a text in te_geterror, when that fails.
    [[nodiscard]] bool isBound(Encoder& owner) const;
};

} // namespace KVNAPI
