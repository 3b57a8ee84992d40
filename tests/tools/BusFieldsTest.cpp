#include "tivra-cat/BusFields.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using tivra_cat::BusFields;

TEST(BusFields, AreNamedUpToALimitAndKnownOnesStay) {
    const tivra_cat::FieldSelection selection({"price=BID/LAST", "ASK"});
    BusFields many(selection);
    const BusFields::Entry* const bid = many.entryOf("BID");
    ASSERT_TRUE(bid != nullptr && bid->isSelected);
    for (std::size_t i = 1; i < BusFields::kMostNames; ++i)
        ASSERT_NE(many.entryOf("HOSTILE." + std::to_string(i)), nullptr);
    EXPECT_EQ(many.entryOf("ASK"), nullptr);
    EXPECT_EQ(many.leftOut(), 1U);
    EXPECT_EQ(many.entryOf("BID"), bid);
    EXPECT_EQ(many.unseen(), std::vector<std::string>{"ASK"});

    BusFields longOnes(selection);
    for (std::size_t i = 0; i < 16; ++i)
        EXPECT_NE(longOnes.entryOf(std::string(BusFields::kMostBytes / 16, static_cast<char>('a' + i))),
                  nullptr);
    EXPECT_EQ(longOnes.entryOf("BID"), nullptr);
}

} // namespace
