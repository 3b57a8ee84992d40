#include "kvnparse/Message.h"

#include "kvnparse/NumberDecode.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>
#include <utility>

namespace KVNAPI {

Message::Message() noexcept
    : isRefresh(0)
    , denomcode(Denom::getUnknown())
    , isRetCodePresent(0)
    , isTagPresent(0)
    , isAltIndexPresent(0)
    , pairs(inlinePairs())
    , nextArea(_staticArea)
    , endArea(_staticArea + kStaticArea)
    , startArea(_staticArea) {}

Message::~Message() = default;

void Message::decodeInto(TVPair& pair) const noexcept {
    // The end byte of the frame, which no number reaches, lets digits be read eight at a time.
    if (pair.token->storage == Token::TY_DOUBLE)
        pair.d = _atod(pair.s.buf, m_textsEnd).d;
    else if (pair.token->storage == Token::TY_INT)
        pair.i = _atoi64(pair.s.buf, m_textsEnd).i;
}

void Message::decodePair(int index) const noexcept {
    if (!isUndecoded(index))
        return;
    decodeInto(pairs[index]);
    m_undecoded &= ~(std::uint64_t{1} << index);
}

void Message::decodeAll() noexcept {
    while (m_undecoded != 0)
        decodePair(std::countr_zero(m_undecoded));
}

void Message::releaseHeap() noexcept {
    pairs = inlinePairs();
    _pairsalloc = STATICPAIRS;
    m_heapPairs.reset();
    startArea = _staticArea;
    endArea = _staticArea + kStaticArea;
    m_heapArea.reset();
}

void Message::verifyAdd() {
    if (paircount < _pairsalloc)
        return;
    growPairs(paircount + 1);
}

void Message::growPairs(std::int32_t count) {
    std::int32_t grown = _pairsalloc;
    while (grown < count)
        grown *= 2;
    // Pairs need no construction: they are written before they are read.
    Block block = BlockPool::take(static_cast<std::size_t>(grown) * sizeof(TVPair));
    std::memcpy(block.get(), pairs, static_cast<std::size_t>(paircount) * sizeof(TVPair));
    m_heapPairs = std::move(block);
    pairs = reinterpret_cast<TVPair*>(m_heapPairs.get());
    _pairsalloc = grown;
}

TVPair* Message::insertPair(int position) {
    if (position < 0 || position > paircount)
        return nullptr;
    decodeAll();
    addPair();
    TVPair* const slot = pairs + position;
    std::move_backward(slot, pairs + paircount - 1, pairs + paircount);
    return slot;
}

void Message::removePair(int position) noexcept {
    if (position < 0 || position >= paircount)
        return;
    decodeAll();
    std::move(pairs + position + 1, pairs + paircount, pairs + position);
    --paircount;
}

int Message::findPosition(const Token* token) const noexcept {
    for (int i = 0; i < paircount; ++i)
        if (pairs[i].token == token)
            return i;
    return -1;
}

int Message::rFindPosition(const Token* token) const noexcept {
    for (int i = paircount - 1; i >= 0; --i)
        if (pairs[i].token == token)
            return i;
    return -1;
}

const TVPair* Message::findPair(const Token* token) const noexcept {
    const int position = findPosition(token);
    return position < 0 ? nullptr : pair(position);
}

TVPair* Message::findPair(const Token* token) noexcept {
    const int position = findPosition(token);
    return position < 0 ? nullptr : pair(position);
}

bool Message::isInArea(const bufref& text) const noexcept {
    // An empty value may stand at the very end of the area; it has no bytes to keep.
    return std::greater_equal<>()(text.buf, static_cast<const char*>(startArea)) &&
           std::less<>()(text.buf, static_cast<const char*>(endArea));
}

std::size_t Message::textInArea() const noexcept {
    std::size_t sum = isInArea(symbol) ? symbol.len : 0;
    for (int i = 0; i < paircount; ++i)
        if (pairs[i].token->storage == Token::TY_STRING && isInArea(pairs[i].s))
            sum += pairs[i].s.len;
    return sum;
}

void Message::__verifyArea(std::size_t count) {
    const bool leavesInline = usesInlineArea();
    // Two values may share bytes, and each gets its own when they are moved.
    const std::size_t used =
        std::max(static_cast<std::size_t>(nextArea - startArea), leavesInline ? 0 : textInArea());
    std::size_t size = static_cast<std::size_t>(endArea - startArea);
    while (size < used + count)
        size *= 2;
    Block block = BlockPool::take(size);
    char* next = reinterpret_cast<char*>(block.get());
    if (!leavesInline) {
        const auto moveText = [&next, this](bufref& text) {
            if (!isInArea(text))
                return;
            std::memcpy(next, text.buf, text.len);
            text.buf = next;
            next += text.len;
        };
        moveText(symbol);
        for (int i = 0; i < paircount; ++i)
            if (pairs[i].token->storage == Token::TY_STRING)
                moveText(pairs[i].s);
    }
    m_heapArea = std::move(block);
    startArea = reinterpret_cast<char*>(m_heapArea.get());
    nextArea = next;
    endArea = startArea + size;
}

void Message::__addCopyStr(Token* token, bufref text) {
    TVPair* const added = addPair();
    added->setB(token, text);
    copyIntoArea(added->s);
}

void Message::copyIntoArea(bufref& text) {
    // The growth may move the very text that is to be copied, so its place is read afterwards.
    char* const to = verifyArea(text.len);
    if (text.len > 0)
        std::memcpy(to, text.buf, text.len);
    text.buf = to;
    confirmArea(text.len);
}

void Message::copyStrings() {
    decodeAll();
    copyIntoArea(symbol);
    for (int i = 0; i < paircount; ++i)
        if (pairs[i].token->storage == Token::TY_STRING)
            copyIntoArea(pairs[i].s);
}

void Message::deepCopy(const Message* source) {
    if (source == this)
        return;
    if (usesInlinePairs() && usesInlineArea())
        nextArea = _staticArea;
    else
        reset();
    symbol = source->symbol;
    exchange = source->exchange;
    permission = source->permission;
    market = source->market;
    denomcode = source->denomcode;
    isRefresh = source->isRefresh;
    if (source->paircount > STATICPAIRS) {
        paircount = 0;
        const auto capacity = static_cast<std::size_t>(source->_pairsalloc);
        m_heapPairs = BlockPool::take(capacity * sizeof(TVPair));
        pairs = reinterpret_cast<TVPair*>(m_heapPairs.get());
        _pairsalloc = source->_pairsalloc;
    }
    paircount = source->paircount;
    std::memcpy(pairs, source->pairs, static_cast<std::size_t>(paircount) * sizeof(TVPair));
    setUndecoded(source->m_undecoded, source->m_textsEnd);
    copyStrings();
}

} // namespace KVNAPI
