#include "tivra_sim/Wire.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace tivra_sim;

namespace {

TEST(Wire, FrameHasTheBytesOfTheFormat) {
    EXPECT_EQ(encodeFrame("1=5|2=ABC"), std::string("\x04\x20\x00\x00\x00\x09"
                                                    "1=5|2=ABC\x03",
                                                    16));
    EXPECT_EQ(encodeFrame(std::string(0x10203, 'x')).substr(2, 4), std::string("\x00\x01\x02\x03", 4));
}

TEST(Wire, StreamCutAtAnyTwoBytesGivesTheSameBodies) {
    const std::vector<std::string> bodies{"5026=1|5001=0", "", "5=\x04 \x04"};
    std::string stream;
    for (const std::string& body : bodies)
        appendFrame(stream, body);
    for (std::size_t first = 0; first <= stream.size(); ++first) {
        for (std::size_t second = first; second <= stream.size(); ++second) {
            FrameReader reader;
            std::vector<std::string> got;
            for (const auto& piece :
                 {stream.substr(0, first), stream.substr(first, second - first), stream.substr(second)}) {
                reader.push(piece);
                std::string_view body;
                FrameReader::Result result{};
                while ((result = reader.next(body)) == FrameReader::Result::Frame)
                    got.emplace_back(body);
                ASSERT_EQ(result, FrameReader::Result::Incomplete) << first << " " << second;
            }
            ASSERT_EQ(got, bodies) << first << " " << second;
        }
    }
}

TEST(Wire, BytesThatAreNoFrameAreRefused) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"GET / HTTP", "a frame starts with byte 47"},
        {"\x04\x21", "second byte is 21"},
        {encodeFrameWithLength("1=5", 2), "ends with byte 35"},
        {encodeFrameWithLength("1=5", 0xFFFFFFFF), "claims a body of 4294967295 bytes"}};
    for (const auto& [bytes, reason] : cases) {
        FrameReader reader;
        reader.push(bytes);
        std::string_view body;
        EXPECT_EQ(reader.next(body), FrameReader::Result::Invalid) << reason;
        EXPECT_THAT(reader.error(), testing::HasSubstr(reason));
    }
}

TEST(Wire, PairsSurviveOddSeparators) {
    const std::vector<Pair> pairs = splitPairs("5026=7|5022=Unsubscribe||5=|x=1|12|6=a=b");
    std::vector<std::pair<int, std::string>> got;
    for (const Pair& pair : pairs)
        got.emplace_back(pair.token, pair.value);
    EXPECT_THAT(got, testing::ElementsAre(testing::Pair(5026, "7"), testing::Pair(5022, "Unsubscribe"),
                                          testing::Pair(5, ""), testing::Pair(6, "a=b")));
}

} // namespace
