#include <gmock/gmock.h>

#include "ReadHandlerFixture.h"
#include "receive/AltIndexTable.h"

namespace tivra_internal {
namespace {

using testing::EndsWith;

AltIndexInfo indexOfSource100(int token) {
    AltIndexInfo info = index(token, "", tivra::ADDALTERNATEINDEX);
    info.srcid = 100;
    return info;
}

class AlternateIndexTest : public ReadHandlerTest {
protected:
    /// Subscribes IBM at source 100 by its CUSIP, as a request with a suppressed snapshot does.
    void subscribeByCusip() {
        session.altIndexes[30] = {index(3101, "459200101", tivra::SUBSCRIBE, true)};
        EXPECT_EQ(receive("5026=30|4=100|5=IBM|3101=459200101|8=1"), "");
    }
};

TEST_F(AlternateIndexTest, AnAnswerMustHoldWhatTheRequestNamed) {
    const struct {
        int token;
        const char* value;
        const char* fields;
        bool matches;
    } cases[] = {
        {3101, "459200101", "3101=459200101", true},
        {3101, "459200101", "3101=459200102", false},
        {3101, "459200101", "3101=4592001011", false},
        {3101, "459200101", "3101=", false},
        {3101, "459200101", "3102=459200101", false},
        {3101, "", "3101=", true},
        // A number is compared by its text, whichever way the hub wrote it.
        {3130, "4711", "3130=+4711", true},
        {3130, "+4711", "3130=4711", false},
        {3130, "4711", "3130=", false},
        {3131, "12.5", "3131=12.50", true},
        {3131, "12.50", "3131=12.50", false},
        {60, "5", "60=5", true},
        // A token that the dictionary doesn't know can match nothing, not even as an unknown field.
        {77777, "abc", "77777=abc", false},
    };
    for (const auto& c : cases) {
        session.altIndexes[20] = {index(c.token, c.value, tivra::QUERYSNAP)};
        const std::string attached = c.matches ? std::to_string(c.token) + '=' + c.value + '|' : "";
        EXPECT_THAT(receive(std::string("5026=20|4=100|5=IBM|") + c.fields), EndsWith(" {" + attached + "}"))
            << c.fields;
    }
}

TEST_F(AlternateIndexTest, AQuerysIndexIsAttachedToItsAnswerAlone) {
    session.altIndexes[20] = {index(3101, "459200101", tivra::QUERYSNAP),
                              index(3102, "US4592001014", tivra::QUERYSNAP)};
    EXPECT_EQ(receive("5026=20|4=100|5=IBM|3101=459200101|8=1|3102=US4592001014"),
              "IMAGE_PART IBM@100 rc=0 tag=20 [5026=20|8=1|] {3101=459200101|3102=US4592001014|}");
    EXPECT_EQ(receive("4=100|5=IBM|8=2"), "UPDATE IBM@100 rc=0 tag=0 [8=2|] {}");
    // One identifier that differs leaves the whole answer as it is.
    EXPECT_EQ(receive("5026=20|4=100|5=IBM|3101=459200101|3102=X"),
              "IMAGE_PART IBM@100 rc=0 tag=20 [5026=20|3101=459200101|3102=X|] {}");
    EXPECT_EQ(receive("5026=20|5001=0"), "STATUS @0 rc=0 tag=20 [5026=20|5001=0|] {}");
    // A list that names an identifier twice takes it once.
    session.altIndexes[20].back() = session.altIndexes[20].front();
    EXPECT_EQ(receive("5026=20|4=100|5=IBM|3101=459200101|8=1"),
              "IMAGE_PART IBM@100 rc=0 tag=20 [5026=20|8=1|] {3101=459200101|}");
}

TEST_F(AlternateIndexTest, ASubscriptionsIndexComesWithEveryUpdateOfItsTicker) {
    subscribeByCusip();
    EXPECT_EQ(receive("4=100|5=IBM|8=2"), "UPDATE IBM@100 rc=0 tag=0 [8=2|] {3101=459200101|}");
    // The identifier as a field of an update would be there twice.
    EXPECT_EQ(receive("4=100|5=IBM|3101=459200101|8=2"),
              "UPDATE IBM@100 rc=0 tag=0 [8=2|] {3101=459200101|}");
    EXPECT_EQ(receive("5026=40|4=100|5=IBM|3101=459200101"),
              "IMAGE_PART IBM@100 rc=0 tag=40 [5026=40|3101=459200101|] {3101=459200101|}");
    for (const char* other :
         {"4=101|5=IBM|8=2", "4=100|5=IBMX|8=2", "4=100|8=2", "5=IBM|8=2", "4=10|5=0,IBM"})
        EXPECT_THAT(receive(other), EndsWith(" {}"));
    // A new connection forgets nothing of it.
    handler().reset();
    EXPECT_EQ(receive("4=100|5=IBM|8=2"), "UPDATE IBM@100 rc=0 tag=0 [8=2|] {3101=459200101|}");
}

TEST_F(AlternateIndexTest, TheStatusOfASuppressedSnapshotStillArrives) {
    subscribeByCusip();
    EXPECT_EQ(receive("5026=30|5001=0"), "STATUS @0 rc=0 tag=30 [5026=30|5001=0|] {}");
    EXPECT_EQ(receive("5026=30|5001=-3|4=100|5=IBM|3101=459200101"),
              "STATUS IBM@100 rc=-3 tag=30 [5026=30|5001=-3|3101=459200101|] {3101=459200101|}");
    EXPECT_EQ(receive("5026=30|4=100|5=HPQ|3101=OTHER"), "");
}

TEST_F(AlternateIndexTest, AnUnsubscribeEndsTheDeliveryOfItsTickers) {
    subscribeByCusip();
    session.altIndexes[31] = {index(3101, "UNKNOWN", tivra::UNSUBSCRIBE)};
    receive("5026=31|5001=0");
    EXPECT_EQ(receive("4=100|5=IBM"), "UPDATE IBM@100 rc=0 tag=0 [] {3101=459200101|}");
    session.altIndexes[31] = {index(3101, "459200101", tivra::UNSUBSCRIBE)};
    EXPECT_NE(receive("5026=31|5001=0"), "");
    EXPECT_EQ(receive("4=100|5=IBM"), "UPDATE IBM@100 rc=0 tag=0 [] {}");
    EXPECT_NE(receive("5026=31|5001=0"), "");
}

TEST_F(AlternateIndexTest, IndexesOfASourceAreLiftedOutOfItsMessages) {
    session.altIndexes[40] = {indexOfSource100(3101), indexOfSource100(77777), indexOfSource100(3130),
                              indexOfSource100(3131)};
    EXPECT_EQ(receive("5026=40|5001=-3"), "STATUS @0 rc=-3 tag=40 [5026=40|5001=-3|] {}");
    EXPECT_EQ(receive("4=100|3101=A"), "UPDATE @100 rc=0 tag=0 [3101=A|] {}");
    EXPECT_EQ(receive("5026=40|5001=0"), "STATUS @0 rc=0 tag=40 [5026=40|5001=0|] {}");

    EXPECT_EQ(receive("4=100|5=IBM|3131=12.50|8=1|3130=-7|3101=A|3101=B"),
              "UPDATE IBM@100 rc=0 tag=0 [8=1|3101=A|] {3131=12.5|3130=-7|3101=B|}");
    EXPECT_EQ(receive("4=101|5=IBM|3101=A"), "UPDATE IBM@101 rc=0 tag=0 [3101=A|] {}");
    EXPECT_EQ(receive("5=IBM|3101=A"), "UPDATE IBM@0 rc=0 tag=0 [3101=A|] {}");
    EXPECT_EQ(receive("4=100|5=IBM|8=1"), "UPDATE IBM@100 rc=0 tag=0 [8=1|] {}");
    // The next confirmation replaces the set.
    session.altIndexes[40] = {indexOfSource100(3102)};
    receive("5026=40|5001=0");
    EXPECT_EQ(receive("4=100|3101=A|3102=B"), "UPDATE @100 rc=0 tag=0 [3101=A|] {3102=B|}");
}

TEST_F(AlternateIndexTest, AnIndexOfTheSourceIsNotTakenFromARequestToo) {
    session.altIndexes[40] = {indexOfSource100(3101)};
    receive("5026=40|5001=0");
    session.altIndexes[20] = {index(3101, "A", tivra::QUERYSNAPANDSUBSCRIBE)};
    EXPECT_EQ(receive("5026=20|4=100|5=IBM|3101=A|8=1"),
              "IMAGE_PART IBM@100 rc=0 tag=20 [5026=20|8=1|] {3101=A|}");
    EXPECT_EQ(receive("4=100|5=IBM|8=1"), "UPDATE IBM@100 rc=0 tag=0 [8=1|] {}");
    // Of another source it is.
    receive("5026=20|4=101|5=IBM|3101=A|8=1");
    EXPECT_EQ(receive("4=101|5=IBM|8=1"), "UPDATE IBM@101 rc=0 tag=0 [8=1|] {3101=A|}");
}

TEST(AltIndexTable, KeepsTheFirstValueOfATokenAndForgetsTickersByAnyOfTheirValues) {
    AltIndexTable table;
    EXPECT_FALSE(table.inUse());
    EXPECT_TRUE(table.setAltIndexForTicker(100, "IBM", index(3101, "A", tivra::SUBSCRIBE)));
    EXPECT_TRUE(table.setAltIndexForTicker(100, "IBM", index(3101, "B", tivra::SUBSCRIBE)));
    EXPECT_TRUE(table.setAltIndexForTicker(100, "IBM", index(3102, "C", tivra::SUBSCRIBE)));
    EXPECT_TRUE(table.setAltIndexForTicker(100, "HPQ", index(3101, "B", tivra::SUBSCRIBE)));
    ASSERT_NE(table.getAltIndexForTicker(100, "IBM"), nullptr);
    EXPECT_EQ(table.getAltIndexForTicker(100, "IBM")->size(), 2U);
    EXPECT_EQ(table.getAltIndexForTicker(100, "IBM")->front().value, "A");

    table.unsetAltIndexForTicker({index(3102, "C", tivra::UNSUBSCRIBE)}, "hub");
    EXPECT_EQ(table.getAltIndexForTicker(100, "IBM"), nullptr);
    EXPECT_NE(table.getAltIndexForTicker(100, "HPQ"), nullptr);
    EXPECT_TRUE(table.inUse());
    table.unsetAltIndexForTicker({index(3101, "B", tivra::UNSUBSCRIBE)}, "hub");
    EXPECT_EQ(table.getAltIndexForTicker(100, "HPQ"), nullptr);
    EXPECT_FALSE(table.inUse());
}

TEST(AltIndexTable, RefusesFurtherKeysWhenFullAndServesTheOnesItHas) {
    AltIndexTable table(2);
    EXPECT_TRUE(table.setAltIndexForTicker(1, "A", index(3101, "a", tivra::SUBSCRIBE)));
    EXPECT_TRUE(table.setAltIndexForTicker(1, "B", index(3101, "b", tivra::SUBSCRIBE)));
    EXPECT_FALSE(table.setAltIndexForTicker(1, "C", index(3101, "a", tivra::SUBSCRIBE)));
    EXPECT_FALSE(table.setAltIndexForTicker(1, "A", index(3102, "c", tivra::SUBSCRIBE)));
    EXPECT_TRUE(table.setAltIndexForTicker(1, "A", index(3101, "b", tivra::SUBSCRIBE)));
    EXPECT_EQ(table.getAltIndexForTicker(1, "C"), nullptr);
    EXPECT_EQ(table.getAltIndexForTicker(1, "A")->size(), 1U);
}

} // namespace
} // namespace tivra_internal
