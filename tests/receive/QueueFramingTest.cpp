#include <string>
#include <vector>

#include "RingFixture.h"

using namespace tivra_internal;

namespace {

using Frames = std::vector<std::string>;

const std::string kBadLength("\x04\x20\x00\x04\x00\x01", 6); // a body of 262145 bytes

/// Bytes between two good frames, and how many of them are no part of a frame.
struct Garbage {
    const char* name;
    std::string bytes;
};

class QueueGarbage : public RingTest, public testing::WithParamInterface<Garbage> {};

class QueueSplit : public RingTest, public testing::WithParamInterface<size_t> {};

} // namespace

TEST_P(QueueGarbage, IsCountedOnceAndTheFramesAroundItArrive) {
    const std::string first = makeFrame("1=first"), second = makeFrame("1=second");
    feed(first + GetParam().bytes);
    feed(second);
    popAll();
    EXPECT_EQ(handler.frames, (Frames{first, second}));
    EXPECT_EQ(droppedIn(), GetParam().bytes.size());
}

TEST_P(QueueGarbage, MayStandAnywhereAroundTheEndOfTheRing) {
    const std::string first = makeFrame("1=first"), second = makeFrame("1=second");
    const std::string all = first + GetParam().bytes + second;
    uint64_t dropped = 0;
    for (size_t distance = 1; distance < all.size(); ++distance) {
        goToEnd(distance);
        dropped = droppedIn();
        feed(all);
        popAll();
        ASSERT_EQ(handler.frames, (Frames{first, second})) << distance;
        ASSERT_EQ(droppedIn() - dropped, GetParam().bytes.size()) << distance;
    }
}

TEST_P(QueueGarbage, MayBeCutByAnyRead) {
    const std::string first = makeFrame("1=first"), second = makeFrame("1=second");
    const std::string all = first + GetParam().bytes + second;
    for (size_t cut = 1; cut < all.size(); ++cut) {
        feed(all.substr(0, cut));
        feed(all.substr(cut));
        popAll();
        ASSERT_EQ(handler.frames, (Frames{first, second})) << cut;
        handler.frames.clear();
    }
    EXPECT_EQ(droppedIn(), GetParam().bytes.size() * (all.size() - 1));
}

INSTANTIATE_TEST_SUITE_P(Cases, QueueGarbage,
                         testing::Values(Garbage{"None", ""}, Garbage{"Text", "abc"},
                                         Garbage{"LengthTooLarge", kBadLength},
                                         Garbage{"StartBytesOnly", std::string(9, '\x04')},
                                         Garbage{"LostEndByte", std::string("\x04\x20\0\0\0\x03"
                                                                            "1=2?",
                                                                            10)},
                                         Garbage{"StartBytesInText", "ab\x04\x04"
                                                                     "cdefgh\x03"}),
                         [](const auto& test) { return std::string(test.param.name); });

// Every place of the frame can lie on the end of the ring: each byte of its header, its body, its end byte.
TEST_P(QueueSplit, FrameArrivesWholeWhereverTheRingEnds) {
    const std::string split = makeFrame("5=IBM|22=17"), next = makeFrame("5=next");
    goToEnd(GetParam());
    feed(split + next);
    popAll();
    EXPECT_EQ(handler.frames, (Frames{split, next}));
    EXPECT_EQ(droppedIn() + droppedOut(), 0U);
    if (GetParam() == split.size()) {
        // It ends with the ring: delivered in place, and the next one at the start.
        EXPECT_EQ(handler.places[0] - handler.places[1], static_cast<ptrdiff_t>(kRing - split.size()));
    }
}

TEST_P(QueueSplit, FrameArrivesByteByByteToo) {
    const std::string split = makeFrame("5=IBM|22=17");
    goToEnd(GetParam());
    for (const char byte : split) {
        EXPECT_TRUE(queue.isEmpty());
        feed({&byte, 1});
    }
    EXPECT_EQ(popAll(), 1U);
    EXPECT_EQ(handler.frames, (Frames{split}));
}

INSTANTIATE_TEST_SUITE_P(Distances, QueueSplit, testing::Range(size_t{1}, size_t{19}));

TEST_F(RingTest, LargestFrameIsAcceptedAndOneByteMoreIsNot) {
    const std::string largest = makeFrame(std::string(262144, 'x'));
    feed(largest);
    EXPECT_EQ(popAll(), 1U);
    EXPECT_EQ(handler.frames.at(0).size(), 262151U);
    feed(makeFrame(std::string(262145, 'x')) + makeFrame("1=2"));
    EXPECT_EQ(popAll(), 1U);
    EXPECT_EQ(droppedIn(), 262152U);
}

TEST_F(RingTest, SplitFrameThatNoCopyHoldsIsSkippedWhole) {
    goToEnd(100);
    const std::string next = makeFrame("1=next");
    feed(makeFrame(std::string(262140, 'x')) + next);
    popAll();
    EXPECT_EQ(handler.frames, (Frames{next}));
    EXPECT_EQ(droppedOut(), 262147U);
    EXPECT_EQ(droppedIn(), 0U);
}

TEST_F(RingTest, EmptyBodyIsAFrameForTheRing) {
    feed(makeFrame(""));
    EXPECT_EQ(popAll(), 1U);
    EXPECT_EQ(handler.frames.at(0).size(), 7U);
}

// The producer has seen that no frame of that length ends there; the consumer sees less and must not wait for
// it.
TEST_F(RingTest, StartThatReachesBeyondThePublishedBytesIsSkipped) {
    const std::string good = makeFrame("1=good");
    // Claims a body of 40 bytes, of which the good frame is a part.
    const std::string liar("\x04\x20\0\0\0\x28", 6);
    for (const size_t distance : {size_t{0}, size_t{3}, size_t{10}}) {
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
