#include "ParserTestKit.h"

#include "kvnparse/Message.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

namespace {

using namespace KVNAPI;
using namespace kvnparse_test;

class MessageTest : public testing::Test {
protected:
    void addInts(int count) {
        for (int i = 0; i < count; ++i)
            message.addPair()->setI(number, i);
    }
    void addText(const std::string& value) { message.addCopyStr(text, bufref(value.data(), value.size())); }
    [[nodiscard]] bool textIsInline(int index) const {
        const auto* const from = reinterpret_cast<const char*>(&message);
        return message.pair(index)->s.buf >= from && message.pair(index)->s.buf < from + sizeof message;
    }
    [[nodiscard]] std::size_t areaSize() const {
        return static_cast<std::size_t>(message.endArea - message.startArea);
    }

    TestMap map;
    Token* number = map.lookupTokenViaNum(1);
    Token* text = map.lookupTokenViaNum(2);
    Message message;
};

TEST_F(MessageTest, PairsLeaveTheObjectAtThe33rdAndAtEachDoubling) {
    TVPair* const inlinePairs = message.pairs;
    const TVPair* place = inlinePairs;
    for (int i = 0; i < 65; ++i) {
        addInts(1);
        EXPECT_EQ(message.pairs != place, i == 32 || i == 64) << i;
        place = message.pairs;
        message.pair(i)->i = i;
    }
    for (int i = 0; i < 65; ++i)
        EXPECT_EQ(message.pair(i)->i, i);
    message.reset();
    EXPECT_EQ(message.pairs, inlinePairs);
    EXPECT_EQ(message.pairCount(), 0);
}

TEST_F(MessageTest, InsertAndRemoveKeepTheOrderAndIgnoreBadPlaces) {
    addInts(32);
    message.insertPair(0)->setI(number, 100);
    message.insertPair(33)->setI(number, 101);
    EXPECT_EQ(message.insertPair(-1), nullptr);
    EXPECT_EQ(message.insertPair(35), nullptr);
    message.removePair(1);
    for (const int bad : {-1, 33, 1000000})
        message.removePair(bad);
    ASSERT_EQ(message.pairCount(), 33);
    for (int i = 0; i < 33; ++i)
        EXPECT_EQ(message.pair(i)->i, i == 0 ? 100 : i == 32 ? 101 : i);
    message.reset();
    message.popPair();
    EXPECT_EQ(message.pairCount(), 0);
}

TEST_F(MessageTest, FindsTheFirstAndTheLastOfDuplicates) {
    addInts(2);
    message.addPair()->setD(map.lookupTokenViaNum(7), 1.0);
    addInts(2);
    EXPECT_EQ(message.findPosition(number), 0);
    EXPECT_EQ(message.rFindPosition(number), 4);
    EXPECT_EQ(message.findPair(map.lookupTokenViaNum(7)), message.pair(2));
    EXPECT_EQ(message.findPair(text), nullptr);
    EXPECT_EQ(message.rFindPosition(text), -1);
}

TEST_F(MessageTest, TextMovesToTheHeapWithoutLosingWhatStandsInline) {
    const std::string block(32, 'a');
    addText(block);
    addText(block);
    EXPECT_TRUE(textIsInline(0) && textIsInline(1));
    addText("b");
    EXPECT_EQ(areaSize(), 128U);
    EXPECT_TRUE(textIsInline(0) && !textIsInline(2));
    // The next growth compacts the heap block alone, and drops what nothing refers to.
    message.symbol = bufref(message.pair(2)->s.buf, 1);
    addText(std::string(120, 'c'));
    message.pair(3)->setI(number, 0);
    addText(std::string(100, 'd'));
    EXPECT_EQ(areaSize(), 256U);
    EXPECT_EQ(describe(message),
              "symbol=b 2:'" + block + "' 2:'" + block + "' 2:'b' 1:0 2:'" + std::string(100, 'd') + "'");
    addText("");
    EXPECT_EQ(message.pair(5)->s.len, 0U);
    message.reset();
    EXPECT_EQ(areaSize(), 64U);
}

TEST_F(MessageTest, GrowthGivesEachOfTwoValuesThatShareBytesItsOwn) {
    addText(std::string(70, 'a'));
    for (int i = 0; i < 30; ++i) {
        const TVPair shared = *message.pair(0);
        message.addPair()->set(&shared);
    }
    addText(std::string(100, 'b'));
    for (int i = 0; i < 31; ++i)
        EXPECT_EQ(message.pair(i)->s.view(), std::string(70, 'a'));
    EXPECT_EQ(message.pair(31)->s.view(), std::string(100, 'b'));
}

TEST_F(MessageTest, LargeMessagesTakeTheBlocksOfEarlierOnes) {
    const auto fill = [this] {
        addInts(33);
        addText(std::string(1500, 'a'));
        const TVPair* const first = message.pairs;
        message.reset();
        return first;
    };
    const TVPair* const first = fill();
    EXPECT_EQ(fill(), first);
    // A message that outlives the pool of its thread.
    std::thread([this] {
        thread_local std::unique_ptr<Message> last;
        last = std::make_unique<Message>();
        last->addCopyStr(text, bufref(std::string(100, 'x').data(), 100));
    }).join();
}

TEST_F(MessageTest, CopyStringsMakesForeignTextItsOwn) {
    auto foreign = std::make_unique<std::string>(200, 'f');
    message.symbol = bufref(foreign->data(), 10);
    message.addPair()->setS(text, foreign->data(), 200);
    message.addPair()->setB(text, bufref(foreign->data() + 199, 1));
    addText("own");
    message.copyStrings();
    const std::string before = describe(message);
    foreign->assign(200, 'x');
    foreign.reset();
    EXPECT_EQ(describe(message), before);
    EXPECT_EQ(message.pair(2)->s.view(), "own");
}

TEST_F(MessageTest, DeepCopyOutlivesItsSource) {
    for (const int pairs : {3, 40}) {
        Message copy;
        copy.isTagPresent = 1;
        auto source = std::make_unique<Message>();
        source->symbol = bufref("IBM", 3);
        source->exchange = map.lookupExchange(37);
        source->market = 'N';
        source->isRefresh = 1;
        for (int i = 0; i < pairs; ++i)
            source->addCopyStr(text, bufref("some text of its own", 20));
        source->isTagPresent = 1;
        const std::string expected = describe(*source);
        source->isTagPresent = 0;
        source->isRetCodePresent = 1;
        copy.deepCopy(source.get());
        source.reset();
        EXPECT_EQ(describe(copy), expected) << "these flags are not copied";
        // A second copy into the same object starts from nothing.
        Message small;
        small.addCopyStr(text, bufref("x", 1));
        copy.deepCopy(&small);
        copy.deepCopy(&copy);
        EXPECT_EQ(copy.pairCount(), 1);
        EXPECT_EQ(copy.symbol.len, 0U);
        EXPECT_EQ(copy.pair(0)->s.view(), "x");
    }
    // Pairs on the heap alone are given back as well.
    Message empty;
    message.isTagPresent = 1;
    addInts(33);
    message.deepCopy(&empty);
    EXPECT_EQ(message.pairsEnd() - message.pairs, Message::STATICPAIRS);
    EXPECT_EQ(message.isTagPresent, 0U);
}

} // namespace
