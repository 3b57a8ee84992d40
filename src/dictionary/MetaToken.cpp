#include "dictionary/MetaToken.h"

#include <string_view>

namespace tivra_internal {

void MetaToken::setTokenName(const char* text, long length) {
    tokenName.assign(text, length < 0 ? 0 : static_cast<std::size_t>(length));
    name = tokenName.c_str();
}

bool MetaToken::setKVNType(const char* word, long length) {
    const std::string_view text(word, length < 0 ? 0 : static_cast<std::size_t>(length));
    const TypeWord* const row = findTypeWord(text);
    if (row == nullptr)
        return false;
    m_kvnType = row->type;
    storage = row->storage & 3U;
    return true;
}

} // namespace tivra_internal
