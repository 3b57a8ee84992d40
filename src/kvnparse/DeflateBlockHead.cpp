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

/// Takes bits off the front.
class BitReader {
public:
    explicit BitReader(const DeflateBits& bits)
        : m_held(bits.first), m_count(bits.count), m_bytes(bits.bytes) {}

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
    std::uint64_t m_held;
    unsigned m_count;
    std::span<const std::uint8_t> m_bytes;
    std::size_t m_used = 0;
};

/// How codes of these lengths fill the space of bit patterns.
struct Fill {
    unsigned longest = 0;
    int left = 1; ///< patterns of the greatest length without a code; negative with more codes than patterns

    explicit Fill(Lengths lengths) {
        std::array<int, kMaxLength + 1> count{};
        for (const std::uint8_t length : lengths)
            ++count[length];
        for (unsigned length = 1; length <= kMaxLength && left >= 0; ++length) {
            left = 2 * left - count[length];
            if (count[length] > 0)
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
    explicit MetaCode(Lengths lengths) {
        m_entries.fill({0, 1});
        std::array<unsigned, kMaxLengthOfMeta + 2> next{};
        for (unsigned length = 1; length <= kMaxLengthOfMeta; ++length)
            next[length + 1] =
                (next[length] + static_cast<unsigned>(std::count(lengths.begin(), lengths.end(), length)))
                << 1;
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
        if (!Fill(meta).isComplete())
            return refuse("invalid code lengths set");
        return readLengths(MetaCode(meta)) && judgeLengths();
    }

    bool readLengths(const MetaCode& code) {
        const unsigned wanted = m_literals + m_distances;
        unsigned have = 0;
        while (have < wanted) {
            unsigned symbol = 0;
            unsigned length = 0;
            if (!code.find(m_bits, symbol, length))
                return false;
            if (symbol < 16) {
                m_bits.drop(length);
                m_lengths[have++] = static_cast<std::uint8_t>(symbol);
                continue;
            }
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
            const std::uint8_t repeated = symbol == 16 ? m_lengths[have - 1] : std::uint8_t{0};
            const unsigned count = repeat.least + m_bits.take(repeat.bits);
            if (have + count > wanted)
                return refuse("invalid bit length repeat");
            std::fill_n(m_lengths.begin() + have, count, repeated);
            have += count;
        }
        return true;
    }

    bool judgeLengths() {
        const Lengths all(m_lengths);
        if (all[kEndOfBlock] == 0)
            return refuse("invalid code -- missing end-of-block");
        if (!Fill(all.first(m_literals)).isCompleteOrSingle())
            return refuse("invalid literal/lengths set");
        return Fill(all.subspan(m_literals, m_distances)).isCompleteOrSingle() ||
               refuse("invalid distances set");
    }

    BitReader m_bits;
    DeflateBlockHead m_head;
    unsigned m_literals = 0;
    unsigned m_distances = 0;
    std::array<std::uint8_t, kMaxLiterals + kMaxDistances> m_lengths{};
};

} // namespace

DeflateBlockHead readDeflateBlockHead(const DeflateBits& bits) {
    return HeadReader(bits).read();
}

} // namespace KVNAPI
