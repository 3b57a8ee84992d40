#include "kvnparse/EncoderTokens.h"

#include "kvnparse/DataMap.h"
#include "kvnparse/Encoder.h"

#include <tp/te_error.h>

#include <iterator>

namespace KVNAPI {

int EncoderTokens::lookUp(DataMap* from) {
    EncoderTokens found;
    const DataMap::lookup rows[] = {{"REFRESH", Token::TY_INT, &found.T_REFRESH},
                                    {"PART.CODE", Token::TY_STRING, &found.T_MARKET},
                                    {"ENUM.SRC.ID", Token::TY_INT, &found.T_SOURCE},
                                    {"SYMBOL.TICKER", Token::TY_STRING, &found.T_SYMBOL},
                                    {"PERMISSION", Token::TY_INT, &found.T_PERM}};
    found.map = from;
    found.generation = from->generation();
    if (from->lookupMany(rows, static_cast<unsigned>(std::size(rows))) != 0)
        return -1;
    *this = found;
    return 0;
}

bool EncoderTokens::isBound(Encoder& owner) const {
    if (map == nullptr) {
        tp::te_seterror("Encoder has no token map");
        return false;
    }
    return generation == map->generation() || owner.setMetaMap(map) == 0;
}

} // namespace KVNAPI
