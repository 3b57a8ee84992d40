// ISA-L and what is read around it, call by call beside zlib.
#include "../InflaterPair.h"

#include "kvnparse/IsalInflater.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <zlib.h>

namespace {

using namespace KVNAPI;
using namespace kvnparse_test;

/// Text like a hub's: numbers that hardly repeat among fields that do.
std::string plainText(std::mt19937& random, std::size_t size) {
    std::string text;
    while (text.size() < size) {
        text += "\x04 5=IBM|30=" + std::to_string(random() % 10'000) + '.' + std::to_string(random() % 100);
        if (random() % 50 == 0)
            text.append(random() % 3000, static_cast<char>(random()));
        if (random() % 200 == 0)
            for (auto count = random() % 3000; count > 0; --count)
                text += static_cast<char>(random());
    }
    return text;
}

struct Making {
    int level = Z_DEFAULT_COMPRESSION;
    int strategy = Z_DEFAULT_STRATEGY;
    int windowBits = 15;
    int flush = Z_SYNC_FLUSH;
    std::size_t pieceSize = 20'000;
    std::string dictionary{};
};

std::string deflated(std::string_view text, const Making& making) {
    z_stream stream{};
    EXPECT_EQ(deflateInit2(&stream, making.level, Z_DEFLATED, making.windowBits, 8, making.strategy), Z_OK);
    if (!making.dictionary.empty())
        deflateSetDictionary(&stream, reinterpret_cast<const Bytef*>(making.dictionary.data()),
                             static_cast<uInt>(making.dictionary.size()));
    std::string out(2 * text.size() + 1000 + 20 * text.size() / making.pieceSize, '\0');
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(text.data()));
    for (std::size_t done = 0; done < text.size(); done += making.pieceSize) {
        stream.avail_in = static_cast<uInt>(std::min(making.pieceSize, text.size() - done));
        deflate(&stream, making.flush);
    }
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

class IsalInflaterTest : public testing::Test {
protected:
    /// In pieces of all sizes up to a limit.
    std::string compare(std::string_view stream, std::size_t most) {
        std::vector<std::string_view> pieces;
        for (std::size_t size = 0; !stream.empty(); stream.remove_prefix(size)) {
            size = std::min<std::size_t>(1 + m_random() % most, stream.size());
            pieces.push_back(stream.substr(0, size));
        }
        return m_pair.compare(pieces, static_cast<std::uint32_t>(m_random()));
    }

    unsigned below(unsigned end) { return static_cast<unsigned>(m_random() % end); }

    std::mt19937 m_random{20131007};

private:
    std::unique_ptr<IsalInflater> m_isal = std::make_unique<IsalInflater>();
    InflaterPair m_pair{*m_isal};
};

/// Bits in the order of a deflate stream.
class BitWriter {
public:
    void add(unsigned value, unsigned count) {
        for (unsigned bit = 0; bit < count; ++bit, ++m_count) {
            if (m_count % 8 == 0)
                m_bytes += '\0';
            m_bytes.back() =
                static_cast<char>(m_bytes.back() | static_cast<int>(value >> bit & 1) << m_count % 8);
        }
    }
    [[nodiscard]] const std::string& bytes() const { return m_bytes; }

private:
    std::string m_bytes;
    unsigned m_count = 0;
};

} // namespace

TEST_F(IsalInflaterTest, StreamsOfEveryMakingGiveTheSameAtEachCall) {
    std::vector<Making> makings;
    for (const int flush : {Z_NO_FLUSH, Z_PARTIAL_FLUSH, Z_SYNC_FLUSH, Z_FULL_FLUSH, Z_BLOCK})
        for (const int level : {0, 1, 6, 9})
            for (const std::size_t pieceSize : {70U, 3'000U, 60'000U})
                makings.push_back({level, Z_DEFAULT_STRATEGY, 9 + level % 7, flush, pieceSize});
    for (const int strategy : {Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED})
        makings.push_back({6, strategy});
    for (const Making& making : makings) {
        SCOPED_TRACE(testing::Message() << "level " << making.level << " strategy " << making.strategy
                                        << " flush " << making.flush << " every " << making.pieceSize);
        const std::string stream =
            deflated(plainText(m_random, making.pieceSize > 1'000 ? 300'000 : 30'000), making) +
            "\x78\x9c after the end";
        for (const std::size_t most : {800U, 100'000U})
            ASSERT_EQ(compare(stream, most), "") << most;
        ASSERT_EQ(compare(stream.substr(0, 9'000), 7), "");
    }
}

TEST_F(IsalInflaterTest, EndsHeadersAndDictionariesAreJudgedAlike) {
    const std::string text = plainText(m_random, 5'000);
    std::string wrongSum = deflated(text, {});
    wrongSum.back() ^= 1;
    for (const std::string& stream :
         {deflated("", {}), wrongSum, deflated(text, {}) + deflated(text, {}),
          deflated(text, {6, Z_DEFAULT_STRATEGY, 15, Z_SYNC_FLUSH, 100, "5=IBM|"})})
        for (std::size_t length = stream.size(); length + 12 > stream.size() && length > 0; --length)
            ASSERT_EQ(compare(std::string_view(stream).substr(0, length), 3), "") << length;
    for (unsigned header = 0; header < 0x10000; ++header) {
        if (header % 31 > 1)
            continue;
        const std::string stream{static_cast<char>(header >> 8), static_cast<char>(header), 3, 0, 0, 0, 0, 1};
        ASSERT_EQ(compare(stream, 8), "") << header;
    }
}

TEST_F(IsalInflaterTest, DamageIsNoticedInTheSameCall) {
    for (const int level : {0, 1, 9}) {
        const std::string stream = deflated(plainText(m_random, 40'000), {level});
        for (int round = 0; round < 600; ++round) {
            std::string damaged = stream;
            // Half of it in the head of the first block.
            const std::size_t at = 2 + m_random() % (round % 2 == 0 ? 80 : damaged.size() - 2);
            damaged[at] = static_cast<char>(damaged[at] ^ 1 << m_random() % 8);
            ASSERT_EQ(compare(damaged, round % 16 == 0 ? 40 : 30'000), "") << level << " at " << at;
        }
    }
}

/// Codes that no compressor makes: too many, too few, one alone, none.
TEST_F(IsalInflaterTest, OddCodesAreRefusedOrUnderstoodAlike) {
    for (int round = 0; round < 2'000; ++round) {
        BitWriter bits;
        bits.add(0x9c78, 16);
        for (unsigned letters = below(3); letters > 0; --letters) { // something to look back at
            bits.add(2, 3);
            bits.add(0x89, 8);
            bits.add(0, 7);
        }
        bits.add(4 + below(2), 3);
        const unsigned literals = below(31), distances = below(32);
        bits.add(literals, 5);
        bits.add(distances, 5);
        bits.add(15, 4);
        for (unsigned code = 0; code < 19; ++code)
            bits.add(code < 3 ? 0 : 4, 3);
        // Each length by four bits, its highest one first.
        const auto addLength = [&bits](unsigned length) {
            for (unsigned bit = 4; bit > 0; --bit)
                bits.add(length >> (bit - 1), 1);
        };
        const unsigned usual = 1 + below(3), ofEnd = below(20) == 0 ? 0 : usual;
        const unsigned first = below(200), used = below(1U << usual);
        for (unsigned code = 0; code < 257 + literals; ++code)
            addLength(code == 256                            ? ofEnd
                      : code >= first && code < first + used ? usual
                      : code == 257 + first % 40             ? usual
                                                             : 0);
        const unsigned ofDistance = below(4), usedDistances = below(1U << ofDistance);
        for (unsigned code = 0; code <= distances; ++code)
            addLength(code <= usedDistances ? ofDistance : 0);
        for (int payload = 0; payload < 12; ++payload)
            bits.add(below(256), 8);
        ASSERT_EQ(compare(bits.bytes(), round % 8 == 0 ? 1 : 200), "") << round;
    }
}
