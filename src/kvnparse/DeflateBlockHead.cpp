#include "kvnparse/DeflateBlockHead.h"

#include <algorithm>
#include <array>

namespace KVNAPI {
namespace {

constexpr unsigned kMaxLength = 15;      ///< of a code, in bits
constexpr unsigned kMaxLengthOfMeta = 7; ///< of a code for the lengths of codes
constexpr unsigned kMaxLiterals = 286;   ///< literals, the end of the block and lengths
constexpr unsigned kMaxDistances = 30;
constexpr unsigned kMetaCodes = 19;
constexpr unsigned kEndOfBlock = 256;
constexpr std::uint8_t kMetaOrder[kMetaCodes] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                 11, 4,  12, 3, 13, 2, 14, 1, 15};

using Lengths = std::span<const std::uint8_t>;
/// How many codes of each length there are.
using Counts = std::array<unsigned, kMaxLength + 1>;

Counts countsOf(Lengths lengths) {
    Counts counts{};
    for (const std::uint8_t length : lengths)
        ++counts[length];
    return counts;
}

/// Takes bits off the front.
class BitReader {
public:
    explicit BitReader(const DeflateBits& bits)
        : m_held(bits.first), m_count(bits.count), m_bytes(bits.bytes) {}

    /// Gathers 56 bits or more, if there are so many.
    void gatherMany() {
        if (m_count >= kManyBits)
            return;
        if (m_bytes.size() - m_used < sizeof m_held) {
            static_cast<void>(need(kManyBits));
            return;
        }
        std::uint64_t next = 0;
        for (unsigned i = 0; i < sizeof next; ++i) // one load to the compiler
            next |= std::uint64_t{m_bytes[m_used + i]} << (8 * i);
        m_held |= next << m_count;
        const unsigned bytes = (63 - m_count) / 8;
        m_used += bytes;
        m_count += 8 * bytes;
    }
    /// Gathers as many bits; false when the bytes end before.
    [[nodiscard]] bool need(unsigned count) {
        while (m_count < count)
            if (!gather())
                return false;
        return true;
    }
    /// Gathers one more byte.
    [[nodiscard]] bool gather() {
        if (m_used == m_bytes.size())
            return false;
        m_held |= std::uint64_t{m_bytes[m_used++]} << m_count;
        m_count += 8;
        return true;
    }
    /// The next bits, with zeros for those that are not gathered.
    [[nodiscard]] unsigned peek(unsigned count) const {
        return static_cast<unsigned>(m_held & ((std::uint64_t{1} << count) - 1));
    }
    void drop(unsigned count) {
        m_held >>= count;
        m_count -= count;
    }
    unsigned take(unsigned count) {
        const unsigned value = peek(count);
        drop(count);
        return value;
    }
    void alignToByte() { drop(m_count % 8); }
    [[nodiscard]] unsigned gathered() const { return m_count; }
    [[nodiscard]] std::uint64_t held() const { return m_held & ((std::uint64_t{1} << m_count) - 1); }
    /// The bytes that hold what has been taken.
    std::size_t returnWholeBytes() {
        const std::size_t unused = std::min<std::size_t>(m_used, m_count / 8);
        m_used -= unused;
        m_count -= static_cast<unsigned>(8 * unused);
        return m_used;
    }

private:
    static constexpr unsigned kManyBits = 56;

    std::uint64_t m_held; ///< zeros, or bits of the bytes that come next, above those that are gathered
    unsigned m_count;
    std::span<const std::uint8_t> m_bytes;
    std::size_t m_used = 0;
};

/// How codes of these lengths fill the space of bit patterns.
struct Fill {
    unsigned longest = 0;
    int left = 1; ///< patterns of the greatest length without a code; negative with more codes than patterns

    explicit Fill(const Counts& counts) {
        for (unsigned length = 1; length <= kMaxLength && left >= 0; ++length) {
            left = 2 * left - static_cast<int>(counts[length]);
            if (counts[length] > 0)
                longest = length;
        }
    }

    /// Whether every pattern has a meaning. No codes at all are accepted until one is met.
    [[nodiscard]] bool isComplete() const { return longest == 0 || left == 0; }
    /// A single code, which is one bit long, leaves the other bit without a meaning.
    [[nodiscard]] bool isCompleteOrSingle() const { return isComplete() || (left > 0 && longest == 1); }
};

/// The code for the lengths of the other codes, looked up by the next bits.
class MetaCode {
public:
    /// Without any code each bit stands for the length 0.
    MetaCode(Lengths lengths, const Counts& counts) {
        m_entries.fill({0, 1});
        std::array<unsigned, kMaxLengthOfMeta + 2> next{};
        for (unsigned length = 1; length <= kMaxLengthOfMeta; ++length)
            next[length + 1] = (next[length] + counts[length]) << 1;
        for (unsigned symbol = 0; symbol < lengths.size(); ++symbol)
            if (lengths[symbol] > 0)
                enter(symbol, lengths[symbol], next[lengths[symbol]]++);
    }

    /// The next symbol, still to be dropped together with its `length` bits; false when the bytes end before.
    [[nodiscard]] bool find(BitReader& bits, unsigned& symbol, unsigned& length) const {
        for (;;) {
            const Entry entry = m_entries[bits.peek(kMaxLengthOfMeta)];
            if (entry.length <= bits.gathered()) {
                symbol = entry.symbol;
                length = entry.length;
                return true;
            }
            if (!bits.gather())
                return false;
        }
    }

private:
    struct Entry {
        std::uint8_t symbol;
        std::uint8_t length;
    };

    /// Codes come with their first bit lowest.
    void enter(unsigned symbol, unsigned length, unsigned code) {
        unsigned reversed = 0;
        for (unsigned bit = 0; bit < length; ++bit)
            reversed |= (code >> bit & 1) << (length - 1 - bit);
        for (unsigned at = reversed; at < m_entries.size(); at += 1U << length)
            m_entries[at] = {static_cast<std::uint8_t>(symbol), static_cast<std::uint8_t>(length)};
    }

    std::array<Entry, 1U << kMaxLengthOfMeta> m_entries;
};

/// One head while it is read. Each step returns false when it can't go on.
class HeadReader {
public:
    explicit HeadReader(const DeflateBits& bits) : m_bits(bits) {}

    DeflateBlockHead read() {
        if (readKind()) {
            m_head.standing = DeflateBlockHead::Standing::SOUND;
            m_head.bytes = m_bits.returnWholeBytes();
            m_head.restCount = m_bits.gathered();
            m_head.rest = m_bits.held();
        }
        return m_head;
    }

private:
    bool refuse(const char* reason) {
        m_head.standing = DeflateBlockHead::Standing::REFUSED;
        m_head.reason = reason;
        return false;
    }

    bool readKind() {
        if (!m_bits.need(3))
            return false;
        m_head.isLast = m_bits.take(1) != 0;
        switch (m_bits.take(2)) {
        case 0:
            return readStored();
        case 1:
            m_head.kind = DeflateBlockHead::Kind::FIXED_CODES;
            return true;
        case 2:
            m_head.kind = DeflateBlockHead::Kind::OWN_CODES;
            return readCodes();
        default:
            return refuse("invalid block type");
        }
    }

    bool readStored() {
        m_bits.alignToByte();
        if (!m_bits.need(32))
            return false;
        m_head.storedBytes = m_bits.take(16);
        return (m_head.storedBytes ^ 0xFFFF) == m_bits.take(16) || refuse("invalid stored block lengths");
    }

    bool readCodes() {
        if (!m_bits.need(14))
            return false;
        m_literals = 257 + m_bits.take(5);
        m_distances = 1 + m_bits.take(5);
        const unsigned metaCodes = 4 + m_bits.take(4);
        if (m_literals > kMaxLiterals || m_distances > kMaxDistances)
            return refuse("too many length or distance symbols");
        std::array<std::uint8_t, kMetaCodes> meta{};
        for (unsigned i = 0; i < metaCodes; ++i) {
            if (!m_bits.need(3))
                return false;
            meta[kMetaOrder[i]] = static_cast<std::uint8_t>(m_bits.take(3));
        }
        const Counts counts = countsOf(meta);
        if (!Fill(counts).isComplete())
            return refuse("invalid code lengths set");
        m_ofLiterals.fill(0);
        m_ofDistances.fill(0);
        return readLengths(MetaCode(meta, counts)) && judgeLengths();
    }

    bool readLengths(const MetaCode& code) {
        const unsigned wanted = m_literals + m_distances;
        unsigned have = 0;
        unsigned last = 0;
        while (have < wanted) {
            m_bits.gatherMany();
            unsigned symbol = 0;
            unsigned length = 0;
            if (!code.find(m_bits, symbol, length))
                return false;
            unsigned count = 1;
            if (symbol < 16) {
                m_bits.drop(length);
                last = symbol;
            } else {
                // Repeats of the length before, or of 0; how often stands in the bits that follow.
                static constexpr struct {
                    unsigned bits;
                    unsigned least;
                } kRepeats[] = {{2, 3}, {3, 3}, {7, 11}};
                const auto& repeat = kRepeats[symbol - 16];
                if (!m_bits.need(length + repeat.bits))
                    return false;
                m_bits.drop(length);
                if (symbol == 16 && have == 0)
                    return refuse("invalid bit length repeat");
                last = symbol == 16 ? last : 0;
                count = repeat.least + m_bits.take(repeat.bits);
                if (have + count > wanted)
                    return refuse("invalid bit length repeat");
            }
            note(have, count, last);
            have += count;
        }
        return true;
    }

    /// The lengths of `count` codes from there on, those of the literals first.
    void note(unsigned from, unsigned count, unsigned length) {
        const unsigned literals = std::min(count, m_literals - std::min(from, m_literals));
        m_ofLiterals[length] += literals;
        m_ofDistances[length] += count - literals;
        if (from <= kEndOfBlock && kEndOfBlock < from + count)
            m_hasEndOfBlock = length > 0;
    }

    bool judgeLengths() {
        if (!m_hasEndOfBlock)
            return refuse("invalid code -- missing end-of-block");
        if (!Fill(m_ofLiterals).isCompleteOrSingle())
            return refuse("invalid literal/lengths set");
        return Fill(m_ofDistances).isCompleteOrSingle() || refuse("invalid distances set");
    }

    BitReader m_bits;
    DeflateBlockHead m_head;
    unsigned m_literals = 0;
    unsigned m_distances = 0;
    Counts m_ofLiterals; ///< begun where there are any
    Counts m_ofDistances;
    bool m_hasEndOfBlock = false;
};

} // namespace

DeflateBlockHead readDeflateBlockHead(const DeflateBits& bits) {
    return HeadReader(bits).read();
}

} // namespace KVNAPI
