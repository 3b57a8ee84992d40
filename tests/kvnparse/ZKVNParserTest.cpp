#include "Deflater.h"
#include "ParserTestKit.h"

#include "kvnparse/Parser.h"

#include <tp/te_error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace KVNAPI;
using namespace kvnparse_test;
using testing::StartsWith;

constexpr std::size_t OUTBUF_SIZE = 131072;

class ZKVNParserTest : public testing::Test {
protected:
    /// Returns how much of the input before was left.
    std::size_t feed(std::string_view bytes) {
        EXPECT_EQ(m_stream.push(bytes), bytes.size());
        return m_stream.held;
    }

    /// All messages that can be had, one a line; the last result is in `result`.
    std::string pullAll() {
        std::string got;
        Message message;
        while ((result = m_parser->pull(&message)) == 0)
            got += describe(message) + '\n';
        return got;
    }

    /// Bytes into `space` bytes of room; the guard behind them ends a test that gets more.
    std::string pullBytes(std::size_t space) {
        bufref out = m_output.place(std::string(space, '?'), GuardedBytes::END_AT_GUARD);
        result = m_parser->pull(&out);
        if (result != 0)
            return {};
        EXPECT_LE(out.len, space);
        return std::string(out.view());
    }

    TestMap m_map;
    Feed<Parser> m_stream{Parser::alloc("zkvn", &m_map, 0), 0x40000};
    Parser* m_parser = m_stream.target.get();
    int result = 0;

private:
    GuardedBytes m_output{OUTBUF_SIZE};
};

/// One push whose output does not fit into the space for it, with frames across each border.
TEST_F(ZKVNParserTest, BlockLargerThanTheOutputIsInflatedInSeveralRounds) {
    std::string plain;
    std::string expected;
    for (int i = 0; plain.size() < 4 * OUTBUF_SIZE; ++i) {
        const std::string text(static_cast<std::size_t>(900 + i % 337), static_cast<char>('a' + i % 26));
        plain += frameOf("1=" + std::to_string(i) + "|2=" + text);
        expected += "1:" + std::to_string(i) + " 2:'" + text + "'\n";
    }
    feed(Deflater()(plain));
    EXPECT_TRUE(pullAll() == expected);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(pullAll(), "") << "a pull without a push brings nothing twice";
    EXPECT_EQ(result, 1);
    EXPECT_EQ(feed(""), 0U);
}

/// Output that ends exactly with the space for it, with all input used up: the rest lies inside zlib.
TEST_F(ZKVNParserTest, OutputThatIsHeldBackComesWithoutNewInput) {
    const std::string last = frameOf("1=7");
    const std::string stream =
        Deflater()(frameOf("2=" + std::string(2 * OUTBUF_SIZE / 3, 'x')) +
                   frameOf("2=" + std::string(OUTBUF_SIZE / 3 - 30, 'y')) + last + last + last + last);
    for (std::size_t cut = stream.size() - 12; cut < stream.size(); ++cut) {
        m_parser->reset();
        feed(stream.substr(0, cut));
        Message message;
        ASSERT_EQ(m_parser->pull(&message), 0);
        // The socket brings nothing in the middle, twice, and the rest in the end.
        feed("");
        feed("");
        std::string got = pullAll();
        EXPECT_EQ(pullAll(), "") << "something was held back at " << cut;
        feed(stream.substr(cut));
        got += pullAll();
        EXPECT_THAT(got, testing::EndsWith("y'\n1:7\n1:7\n1:7\n1:7\n")) << cut;
    }
}

/// Two reads that meet at any byte, and output that goes into any space; five cuts share the spaces.
TEST_F(ZKVNParserTest, EveryCutAndEverySpaceGiveTheSameBytesAndMessages) {
    std::string plain;
    std::string expected;
    for (int i = 0; i < 3; ++i) {
        plain += frameOf("1=" + std::to_string(i) + "|2=abcabcab");
        expected += "1:" + std::to_string(i) + " 2:'abcabcab'\n";
    }
    for (const int level : {0, 9}) {
        const std::string stream = Deflater(level)(plain);
        for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
            const std::string parts[] = {stream.substr(0, cut), stream.substr(cut)};
            for (std::size_t space = 1 + cut % 5; space <= plain.size() + 1; space += 5) {
                m_parser->reset();
                std::string got;
                for (const std::string& part : parts) {
                    std::string some;
                    feed(part);
                    while ((some = pullBytes(space)).size() == space) {
                        got += some;
                        if (space % 2 == 0) // what finds no space waits with and without a read in between
                            feed("");
                    }
                    got += some;
                }
                ASSERT_EQ(got, plain) << cut << " into " << space;
                ASSERT_EQ(pullBytes(0), "");
                ASSERT_EQ(result, 0);
            }
            m_parser->reset();
            std::string got;
            for (const std::string& part : parts) {
                feed(part);
                got += pullAll();
            }
            ASSERT_EQ(got, expected) << cut;
        }
    }
}

TEST_F(ZKVNParserTest, NoBlockIsInflatedTwiceAtTheChangeToBytes) {
    Deflater deflater;
    const std::string half = frameOf("1=3");
    feed(deflater(frameOf("1=1") + frameOf("1=2") + half.substr(0, 4)));
    Message message;
    ASSERT_EQ(m_parser->pull(&message), 0);
    // The second frame is with the inner parser: what is inflated already is not carried over.
    EXPECT_EQ(pullBytes(4096), "");
    feed(deflater(half.substr(4) + frameOf("1=4")));
    EXPECT_EQ(pullBytes(4096), half.substr(4) + frameOf("1=4"));
}

TEST_F(ZKVNParserTest, CorruptStreamSaysSoAndAFreshOneIsRead) {
    const std::string good = Deflater()(frameOf("5=IBM|1=17"));
    std::string badBlock = good;
    badBlock[2] = '\x07'; // a block of no known type
    const std::string bad[] = {"\x04 no zlib stream", badBlock, std::string("\x78\xbb\0\0\0\1", 6)};
    const char* const errors[] = {"zlib error (-3(incorrect header check), 0)",
                                  "zlib error (-3(invalid block type), 0)",
                                  "zlib error (-3(), 0)"}; // wants a dictionary: zlib has no text for it
    for (std::size_t i = 0; i < std::size(bad); ++i) {
        for (const bool wantsMessages : {true, false}) {
            feed(bad[i]);
            EXPECT_EQ(wantsMessages ? pullAll() : pullBytes(100), "");
            EXPECT_EQ(result, -1);
            EXPECT_STREQ(tp::te_geterror(), errors[i]);
            EXPECT_EQ(pullAll(), "");
            EXPECT_EQ(result, 1) << "nothing of it is left";
            EXPECT_EQ(feed(good), 0U);
            EXPECT_EQ(pullAll(), "symbol=IBM 1:17\n");
            m_parser->reset();
        }
    }
}

/// What comes behind the end of a stream can't be read; the reader sees its input fill up.
TEST_F(ZKVNParserTest, StreamEndStopsThereWithoutAnEndlessLoop) {
    const std::string stream = Deflater()(frameOf("1=1"), Z_FINISH);
    feed(stream + "behind");
    EXPECT_EQ(pullAll(), "1:1\n");
    EXPECT_EQ(result, 1);
    EXPECT_EQ(feed("!"), 6U);
    EXPECT_EQ(pullAll(), "");
    EXPECT_EQ(feed(""), 7U);
    EXPECT_EQ(pullBytes(100), "");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(feed(""), 7U);
    m_parser->reset();
    feed(stream);
    EXPECT_EQ(pullAll(), "1:1\n");
    // Input that outgrows its room is cut and not written behind it.
    feed(stream + std::string(100, 'x'));
    GuardedBytes small(16);
    EXPECT_EQ(m_parser->moveRemaining(small.place(std::string(16, '?'), GuardedBytes::END_AT_GUARD)), 16);
}

/// A few bytes that inflate to many, without one frame in them, inside a frame that never ends, and inside
/// one of an impossible length: a bounded number of errors, with all of them skipped.
TEST_F(ZKVNParserTest, BombEndsAfterItsLastByte) {
    const std::string zeros(1 << 20, '\0');
    constexpr std::size_t MEGABYTES = 12;
    for (const std::string& begin :
         {std::string(), frameOf(std::string(OUTBUF_SIZE - 100, 'x')).substr(0, 50),
          std::string("\x04 \xff\xff\xff\xff", 6)}) {
        m_parser->reset();
        Deflater deflater(9);
        std::string bomb = deflater(begin);
        for (std::size_t i = 0; i < MEGABYTES; ++i)
            bomb += deflater(zeros, Z_NO_FLUSH);
        bomb += deflater("");
        ASSERT_LT(bomb.size(), 65536U);
        feed(bomb);
        Message message;
        std::size_t errors = 0;
        for (const int expected : {1, 0}) {
            while ((result = m_parser->pull(&message)) < 0)
                ASSERT_LT(++errors, 2 * MEGABYTES * zeros.size() / OUTBUF_SIZE);
            EXPECT_EQ(result, expected);
            feed(deflater(frameOf("1=5")));
        }
        EXPECT_EQ(describe(message), "1:5");
        // Bytes come only into the space that they are given.
        m_parser->reset();
        feed(bomb);
        EXPECT_EQ(pullBytes(1000).size(), 1000U);
    }
}

TEST_F(ZKVNParserTest, FrameAsLongAsTheOutputIsRefusedInsteadOfWaitedFor) {
    feed(Deflater(0)(frameOf(std::string(OUTBUF_SIZE, 'x')).substr(0, OUTBUF_SIZE + 3)));
    Message message;
    EXPECT_EQ(m_parser->pull(&message), -1);
    EXPECT_THAT(tp::te_geterror(), StartsWith("Block too large"));
}

TEST_F(ZKVNParserTest, OptionsAndTheDictionaryReachTheInnerParser) {
    EXPECT_EQ(m_parser->setOption("ParseIntoHeader", "0"), 0);
    EXPECT_EQ(m_parser->setOption("NoSuchOption", "0"), -1);
    feed(Deflater()(frameOf("5=IBM")));
    EXPECT_EQ(pullAll(), "5:'IBM'\n");
    DataMap poor;
    EXPECT_EQ(m_parser->setMetaMap(&poor), 1);
    EXPECT_STREQ(tp::te_geterror(), "Could not allocate KVN Parser");
    m_parser->reset();
    feed(Deflater()(frameOf("5=AIG")));
    EXPECT_EQ(pullAll(), "5:'AIG'\n") << "the old dictionary is still there";
    TestMap other;
    EXPECT_EQ(m_parser->setMetaMap(&other), 0);
}

} // namespace
