#include <string>
#include <vector>

#include "RingFixture.h"

using namespace tivra_internal;

namespace {

using Frames = std::vector<std::string>;
using namespace std::string_literals;

} // namespace

TEST_F(RingTest, GarbageMayStandAnywhereAroundTheEndOfTheRingAndBeCutByAnyRead) {
    const std::string first = frameOf("1=first"), second = frameOf("1=second");
    const std::string tooLong = "\x04\x20\x00\x04\x00\x01"s, noEnd = "\x04\x20\0\0\0\x03 1=?"s;
    const std::string wouldWrap =
        "\x04\x20\1\0\0\1x\x03"s; // without the top byte of its length it is a frame
    for (const std::string& garbage :
         {""s, "abc"s, tooLong, wouldWrap, std::string(9, '\x04'), noEnd, "ab\x04\x04 defgh\x03"s}) {
        const std::string all = first + garbage + second;
        for (std::size_t distance = 1; distance < all.size(); ++distance) {
            SCOPED_TRACE(garbage + ", ring ends after " + std::to_string(distance));
            goToEnd(distance);
            const uint64_t before = droppedIn();
            const std::size_t cut = distance * 7 % all.size();
            feed(std::string_view(all).substr(0, cut));
            feed(std::string_view(all).substr(cut));
            popAll();
            ASSERT_EQ(handler.frames, (Frames{first, second}));
            ASSERT_EQ(droppedIn() - before, garbage.size());
        }
    }
}

// Every place of the frame can lie on the end of the ring: each byte of its header, its body, its end byte.
TEST_F(RingTest, FrameArrivesByteByByteWhereverTheRingEnds) {
    const std::string split = frameOf("5=IBM|22=17"), next = frameOf("5=next");
    for (std::size_t distance = 1; distance <= split.size(); ++distance) {
        goToEnd(distance);
        for (const char byte : split) {
            EXPECT_TRUE(queue.isEmpty());
            feed({&byte, 1});
        }
        feed(next);
        popAll();
        EXPECT_EQ(handler.frames, (Frames{split, next})) << distance;
    }
    EXPECT_EQ(droppedIn() + droppedOut(), 0U);
    // The last one ends with the ring: delivered in place, and the next one at the start.
    EXPECT_EQ(handler.places[0] - handler.places[1], static_cast<ptrdiff_t>(kRing - split.size()));
}

TEST_F(RingTest, LargestFrameIsAcceptedAndOneByteMoreIsNot) {
    const std::string largest = frameOf(std::string(262144, 'x')), smallest = frameOf("");
    feed(largest + smallest);
    EXPECT_EQ(popAll(), 2U);
    EXPECT_EQ(handler.frames, (Frames{largest, smallest}));
    feed(frameOf(std::string(262145, 'x')) + frameOf("1=2"));
    EXPECT_EQ(popAll(), 1U);
    EXPECT_EQ(droppedIn(), 262152U);
}

TEST_F(RingTest, SplitFrameThatNoCopyHoldsIsSkippedWhole) {
    goToEnd(100);
    const std::string next = frameOf("1=next");
    feed(frameOf(std::string(262140, 'x')) + next);
    popAll();
    EXPECT_EQ(handler.frames, (Frames{next}));
    EXPECT_EQ(droppedOut(), 262147U);
    EXPECT_EQ(droppedIn(), 0U);
}

// The producer has seen that no frame of that length ends there; the consumer sees less and must not wait for
// it.
TEST_F(RingTest, StartThatReachesBeyondThePublishedBytesIsSkipped) {
    const std::string good = frameOf("1=good");
    // Claims a body of 40 bytes, of which the good frame is a part.
    const std::string liar("\x04\x20\0\0\0\x28", 6);
    for (const std::size_t distance : {std::size_t{0}, std::size_t{3}, std::size_t{10}}) {
        if (distance > 0)
            goToEnd(distance);
        const uint64_t before = droppedOut();
        feed(liar + good + std::string("\x04\x20\0\0\0\x20", 6) + std::string(28, 'p'));
        EXPECT_EQ(popAll(), 1U);
        EXPECT_EQ(handler.frames.back(), good);
        EXPECT_EQ(droppedOut() - before, 1U) << "the false start, once";
        feed(std::string(4, 'p') + '\x03');
        EXPECT_EQ(popAll(), 1U);
    }
}
