#pragma once

#include "kvnparse/BlockPool.h"
#include "kvnparse/Denom.h"
#include "kvnparse/TVPair.h"
#include "kvnparse/bufref.h"

#include <cstddef>
#include <cstdint>

namespace KVNAPI {

class Exchange;

/// One wire message in memory: header fields, the pairs in wire order and the storage of their text. Made and
/// dropped for every message of the hot path, so 32 pairs and 64 bytes of text live inside the object and
/// nothing of that is cleared beforehand. Belongs to one thread at a time.
///
/// A parser may leave numbers undecoded, as texts in its frame. Whoever is handed a pair is handed its value:
/// it is decoded first, in place, even if the message is const. A copy has nothing undecoded.
class Message {
public:
    static constexpr int STATICPAIRS = 32;
    static constexpr std::size_t kStaticArea = 64;
    static constexpr int kMostUndecoded = 64; ///< pairs after these always hold their values

    Message() noexcept;
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
    virtual ~Message();

    bufref symbol;                        ///< the instrument; `len` 0 when absent
    const Exchange* exchange = nullptr;   ///< source of the message, null when absent
    const Exchange* permission = nullptr; ///< permission id, null when absent
    char market = 0;                      ///< the part code, 0 when absent
    unsigned isRefresh : 1;               ///< the message is an image refresh
    const Denom* denomcode;               ///< display precision; Denom::Unknown_ when absent
    unsigned isRetCodePresent : 1;        ///< the message carried the query status token
    unsigned isTagPresent : 1;            ///< the message carried the query tag token
    unsigned isAltIndexPresent : 1;       ///< the message carried an alternate identifier
    std::int32_t paircount = 0;           ///< pairs in use
    TVPair* pairs;                        ///< the inline array, or one on the heap; decodes nothing
    char* nextArea;                       ///< first free byte of the text area
    char* endArea;                        ///< end of the text area
    char* startArea;                      ///< start of the text area, inline or on the heap

    /// Empties the message and gives back any heap storage, which the next large message of the thread takes.
    void reset() noexcept {
        symbol.len = 0;
        exchange = nullptr;
        permission = nullptr;
        market = 0;
        isRefresh = 0;
        denomcode = Denom::getUnknown();
        isRetCodePresent = 0;
        isTagPresent = 0;
        isAltIndexPresent = 0;
        paircount = 0;
        m_undecoded = 0;
        if (!usesInlinePairs() || !usesInlineArea())
            releaseHeap();
        nextArea = _staticArea;
    }

    [[nodiscard]] TVPair* pair(int index) noexcept {
        decode(index);
        return pairs + index;
    }
    [[nodiscard]] const TVPair* pair(int index) const noexcept {
        decode(index);
        return pairs + index;
    }
    /// The token of a pair, whose value stays as it is.
    [[nodiscard]] const Token* tokenOf(int index) const noexcept { return pairs[index].token; }
    /// A pair with its value, for a reader who is not to change the message.
    [[nodiscard]] TVPair readPair(int index) const noexcept {
        TVPair copy = pairs[index];
        if (isUndecoded(index))
            decodeInto(copy);
        return copy;
    }
    [[nodiscard]] int pairCount() const noexcept { return paircount; }

    /// The new last pair, uninitialised. Throws std::bad_alloc, as every growth here does.
    TVPair* addPair() {
        if (paircount >= STATICPAIRS)
            verifyAdd();
        return pairs + paircount++;
    }
    /// Says which of the first pairs hold the text of their value, the first one lowest, and where the bytes
    /// end that the texts of numbers stand in. For parsers, which have checked these texts.
    void setUndecoded(std::uint64_t which, const char* textsEnd) noexcept {
        m_undecoded = which;
        m_textsEnd = textsEnd;
    }
    /// Decodes what has not been decoded, so that the bytes that it stands in may go.
    void decodeAll() noexcept;
    /// Behind the last slot that needs no growth. For parsers, which fill slots by themselves.
    [[nodiscard]] TVPair* pairsEnd() noexcept { return pairs + _pairsalloc; }
    /// Makes room for so many pairs in all.
    void reservePairs(std::int32_t count) {
        if (count > _pairsalloc)
            growPairs(count);
    }
    /// Drops the last pair, if there is one.
    void popPair() noexcept {
        if (paircount > 0) {
            decode(paircount - 1);
            --paircount;
        }
    }
    /// Moves the pairs from `position` up by one and returns the slot, whose content is undefined. Null, with
    /// nothing done, when `position` is not from 0 to the count of pairs.
    TVPair* insertPair(int position);
    /// Drops the pair at `position`; nothing when there is none.
    void removePair(int position) noexcept;

    /// The first pair with that token, or null.
    [[nodiscard]] TVPair* findPair(const Token* token) noexcept;
    [[nodiscard]] const TVPair* findPair(const Token* token) const noexcept;
    /// Index of the first or of the last pair with that token, or -1.
    [[nodiscard]] int findPosition(const Token* token) const noexcept;
    [[nodiscard]] int rFindPosition(const Token* token) const noexcept;

    /// Room for `count` bytes at the returned place. Bytes that were written there and not confirmed are lost
    /// when the area grows.
    char* verifyArea(std::size_t count) {
        if (count > static_cast<std::size_t>(endArea - nextArea))
            __verifyArea(count);
        return nextArea;
    }
    /// The same where up to `expected` bytes may follow in all, for which an area that has to grow has room.
    char* verifyArea(std::size_t count, std::size_t expected) {
        if (count > static_cast<std::size_t>(endArea - nextArea))
            __verifyArea(expected);
        return nextArea;
    }
    /// Takes `count` verified bytes into use.
    void confirmArea(std::size_t count) noexcept { nextArea += count; }
    /// Adds a string pair over `count` bytes written at `nextArea`, and confirms them.
    void confirmAndAdd(Token* token, std::size_t count) {
        addPair()->setB(token, bufref(nextArea, count));
        nextArea += count;
    }
    /// Adds a string pair over a copy of the bytes.
    void addCopyStr(Token* token, bufref text) { __addCopyStr(token, text); }

    /// Pulls the symbol and every string value into the message's own text area.
    void copyStrings();

    /// Makes this an independent copy, which shares only tokens and exchanges with `source`. The three
    /// present flags are not copied: a caller that needs them sets them.
    void deepCopy(const Message* source);

    /// Walks the pairs of a message in wire order.
    class iterator {
    public:
        explicit iterator(const Message* message) noexcept
            : m_message(message), cur_(message->pairs), last_(message->pairs + message->paircount) {}
        [[nodiscard]] TVPair* next() noexcept {
            if (cur_ == last_)
                return nullptr;
            if (m_message->m_undecoded != 0)
                m_message->decode(static_cast<int>(cur_ - m_message->pairs));
            return cur_++;
        }

    private:
        const Message* m_message;
        TVPair* cur_;
        TVPair* last_;
    };

private:
    void releaseHeap() noexcept;
    void verifyAdd();
    void growPairs(std::int32_t count);
    void __verifyArea(std::size_t count);
    void __addCopyStr(Token* token, bufref text);
    [[nodiscard]] std::size_t textInArea() const noexcept;
    [[nodiscard]] bool isInArea(const bufref& text) const noexcept;
    void copyIntoArea(bufref& text);
    [[nodiscard]] bool isUndecoded(int index) const noexcept {
        return m_undecoded != 0 && index < kMostUndecoded && (m_undecoded >> index & 1) != 0;
    }
    void decode(int index) const noexcept {
        if (m_undecoded != 0)
            decodePair(index);
    }
    void decodePair(int index) const noexcept;
    void decodeInto(TVPair& pair) const noexcept;

    [[nodiscard]] TVPair* inlinePairs() noexcept { return reinterpret_cast<TVPair*>(_pairs); }
    [[nodiscard]] bool usesInlinePairs() const noexcept {
        return static_cast<const void*>(pairs) == static_cast<const void*>(_pairs);
    }
    [[nodiscard]] bool usesInlineArea() const noexcept { return startArea == _staticArea; }

    mutable std::uint64_t m_undecoded = 0; ///< see setUndecoded
    const char* m_textsEnd = nullptr;      ///< of no use when nothing is undecoded
    std::int32_t _pairsalloc = STATICPAIRS;
    alignas(TVPair) std::byte _pairs[STATICPAIRS * sizeof(TVPair)];
    char _staticArea[kStaticArea];
    Block m_heapPairs;
    Block m_heapArea;
};

} // namespace KVNAPI
