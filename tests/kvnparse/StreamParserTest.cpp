#include "ParserTestKit.h"

#include "kvnparse/StreamParser.h"

#include <tp/te_error.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using KVNAPI::Message;
using KVNAPI::StreamParser;
using kvnparse_test::describe;
using kvnparse_test::frameOf;
using kvnparse_test::TestMap;

class StreamParserTest : public testing::Test {
protected:
    StreamParserTest() {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, m_ends), 0);
    }
    ~StreamParserTest() override {
        ::close(m_ends[0]);
        if (m_ends[1] >= 0)
            ::close(m_ends[1]);
    }
    void send(const std::string& bytes) {
        ASSERT_EQ(::write(m_ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void hangUp() {
        ::close(m_ends[1]);
        m_ends[1] = -1;
    }
    [[nodiscard]] int reader() const { return m_ends[0]; }

    TestMap m_map;

private:
    int m_ends[2] = {-1, -1};
};

TEST_F(StreamParserTest, FramesSplitAtEachByteComeWhole) {
    const std::string bytes = frameOf("5=IBM|1=17") + frameOf("2=text");
    const auto parser = StreamParser::alloc("kvn", &m_map, 64);
    ASSERT_NE(parser, nullptr);
    for (std::size_t split = 1; split < bytes.size(); ++split) {
        std::string got;
        Message message;
        for (const std::string& part : {bytes.substr(0, split), bytes.substr(split)}) {
            send(part);
            std::size_t room = 0;
            ASSERT_EQ(parser->push(reader(), &room), static_cast<std::int64_t>(part.size()));
            ASSERT_GE(room, part.size());
            while (parser->pull(&message) == 0)
                got += describe(message) + '\n';
        }
        EXPECT_EQ(got, "symbol=IBM 1:17\n2:'text'\n") << split;
    }
}

TEST_F(StreamParserTest, AReadThatBringsNothingLosesNothing) {
    const auto parser = StreamParser::alloc("kvn", &m_map, 64);
    const std::string second = frameOf("1=2");
    send(frameOf("1=1") + second.substr(0, 5));
    ASSERT_GT(parser->push(reader(), nullptr), 0);
    // Nothing has been pulled when the socket runs dry and when it closes.
    ASSERT_EQ(parser->push(reader(), nullptr), -1);
    EXPECT_EQ(errno, EAGAIN);
    Message message;
    ASSERT_EQ(parser->pull(&message), 0);
    EXPECT_EQ(describe(message), "1:1");
    EXPECT_EQ(parser->pull(&message), 1);
    send(second.substr(5));
    ASSERT_GT(parser->push(reader(), nullptr), 0);
    hangUp();
    ASSERT_EQ(parser->push(reader(), nullptr), 0);
    ASSERT_EQ(parser->pull(&message), 0);
    EXPECT_EQ(describe(message), "1:2");
    EXPECT_EQ(parser->msglen(), 10U);
}

TEST_F(StreamParserTest, AFullBufferIsNoEndOfTheStream) {
    const auto parser = StreamParser::alloc("kvn", &m_map, 32);
    send(frameOf("2=" + std::string(100, 'x')));
    ASSERT_EQ(parser->push(reader(), nullptr), 32);
    std::size_t room = 1;
    ASSERT_EQ(parser->push(reader(), &room), 1);
    EXPECT_EQ(room, 0U);
    Message message;
    EXPECT_EQ(parser->pull(&message), -1);
    EXPECT_STREQ(tp::te_geterror(), "Block too large (max is 32).");
    parser->reset();
    send(frameOf("1=5"));
    for (int result = -1; result != 0;) {
        ASSERT_GT(parser->push(reader(), nullptr), 0);
        do
            result = parser->pull(&message);
        while (result == -1);
    }
    EXPECT_EQ(describe(message), "1:5");
}

TEST_F(StreamParserTest, AllocSaysWhyThereIsNone) {
    EXPECT_EQ(StreamParser::alloc("none", &m_map, 64), nullptr);
    EXPECT_EQ(StreamParser::alloc("kvn", &m_map, 0), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Error initializing buf_ space StreamFrammer::alloc");
}

} // namespace
