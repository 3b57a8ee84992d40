#include "dictionary/MetaToken.h"

#include <string_view>

#include <tp/eprintf.h>

namespace tivra_internal {

void MetaToken::setTokenName(const char* text, long length) {
    tokenName.assign(text, length < 0 ? 0 : static_cast<size_t>(length));
    name = tokenName.c_str();
}

void MetaToken::setKVNType(const char* word, long length) {
    const std::string_view text(word, length < 0 ? 0 : static_cast<size_t>(length));
    const TypeWord* const row = findTypeWord(text);
    if (row == nullptr) {
        eprintf(EPF_WARN, "MetaToken::setKVNType - invalid type: %s\n",
                std::string(text.substr(0, 4096)).c_str());
        return;
    }
    m_kvnType = row->type;
    storage = row->storage & 3U;
}

} // namespace tivra_internal
