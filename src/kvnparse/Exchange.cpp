#include "kvnparse/Exchange.h"

#include "kvnparse/NumericText.h"

#include <cstring>

namespace KVNAPI {

namespace {

// The older numbering is market times 32 plus the place of a letter, with single markets below.
bool isInFinanceRange(int id) noexcept {
    const int letter = id & 31;
    return (id >= 6 && id <= 30) || (id >= 33 && id <= 1024 && letter >= 1 && letter <= 26);
}

bool isInNewsRange(int id) noexcept {
    return id == 1 || id == 5 || id == 31 || (id >= 4097 && id <= 50752);
}

} // namespace

Exchange::Exchange(int sourceId) noexcept
    : id(sourceId)
    , skipParse(0)
    , lgcyFinance(isInFinanceRange(sourceId) ? 1 : 0)
    , lgcyNews(isInNewsRange(sourceId) ? 1 : 0) {
    char text[kNumberTextMax];
    const auto length = static_cast<std::size_t>(i64toa(text, sourceId) - text);
    if (length < sizeof sid)
        std::memcpy(sid, text, length);
}

} // namespace KVNAPI
