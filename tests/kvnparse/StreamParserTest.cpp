#include "ParserTestKit.h"
#include "tp/SocketPair.h"

#include "kvnparse/StreamParser.h"

#include <tp/te_error.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

using namespace KVNAPI;
using namespace kvnparse_test;

struct StreamParserTest : testing::Test {
    TestMap map;
    SocketPair sockets{SOCK_NONBLOCK};
};

TEST_F(StreamParserTest, AReadThatBringsNothingLosesNothing) {
    const auto parser = StreamParser::alloc("kvn", &map, 64);
    const std::string second = frameOf("1=2");
    sockets.write(frameOf("1=1") + second.substr(0, 5));
    ASSERT_GT(parser->push(sockets.fd(), nullptr), 0);
    // Nothing has been pulled when the socket runs dry and when it closes.
    ASSERT_EQ(parser->push(sockets.fd(), nullptr), -1);
    EXPECT_EQ(errno, EAGAIN);
    Message message;
    ASSERT_EQ(parser->pull(&message), 0);
    EXPECT_EQ(describe(message), "1:1");
    EXPECT_EQ(parser->pull(&message), 1);
    sockets.write(second.substr(5));
    std::size_t room = 0;
    ASSERT_EQ(parser->push(sockets.fd(), &room), 5);
    EXPECT_EQ(room, 64U - 5U);
    sockets.hangUp();
    ASSERT_EQ(parser->push(sockets.fd(), nullptr), 0);
    ASSERT_EQ(parser->pull(&message), 0);
    EXPECT_EQ(describe(message), "1:2");
    EXPECT_EQ(parser->msglen(), 10U);
}

TEST_F(StreamParserTest, AFullBufferIsNoEndOfTheStream) {
    const auto parser = StreamParser::alloc("kvn", &map, 32);
    sockets.write(frameOf("2=" + std::string(100, 'x')));
    ASSERT_EQ(parser->push(sockets.fd(), nullptr), 32);
    std::size_t room = 1;
    ASSERT_EQ(parser->push(sockets.fd(), &room), 1);
    EXPECT_EQ(room, 0U);
    Message message;
    EXPECT_EQ(parser->pull(&message), -1);
    EXPECT_STREQ(tp::te_geterror(), "Block too large (max is 32).");
    parser->reset();
    sockets.write(frameOf("1=5"));
    for (int result = -1; result != 0;) {
        ASSERT_GT(parser->push(sockets.fd(), nullptr), 0);
        do
            result = parser->pull(&message);
        while (result == -1);
    }
    EXPECT_EQ(describe(message), "1:5");
}

TEST_F(StreamParserTest, AllocSaysWhyThereIsNone) {
    EXPECT_EQ(StreamParser::alloc("none", &map, 64), nullptr);
    EXPECT_EQ(StreamParser::alloc("kvn", &map, 0), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Error initializing buf_ space StreamFrammer::alloc");
}

} // namespace
