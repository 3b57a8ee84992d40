#include "bus/SubjectNames.h"
#include "bus/BusError.h"

#include <gtest/gtest.h>

#include <string>

using namespace tivra_bus;

TEST(SubjectNames, EveryByteOfASymbolComesBackAndNoneEndsAToken) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    const std::string text = escapedSymbol(all);
    EXPECT_EQ(text.find_first_of(". *>\t\r\n"), std::string::npos);
    EXPECT_EQ(unescapedSymbol(text), all);
    EXPECT_EQ(lastSubject(100, "BRK.B"), "tivra.v1.last.100.BRK=2EB");
}

TEST(SubjectNames, SymbolsThatAreWrittenOtherwiseAreRefused) {
    for (const char* text : {"A.B", "A=", "A=2", "A=2e", "A=GG", "A B"})
        EXPECT_THROW((void)unescapedSymbol(text), BatchError) << text;
}

// Readers in other languages compute the same: these figures are those of docs/bridge.md.
TEST(SubjectNames, PartitionsNeverMove) {
    EXPECT_EQ(partitionOf(100, "IBM", 16), 12U);
    EXPECT_EQ(partitionOf(100, "AIG", 16), 5U);
    EXPECT_EQ(partitionOf(100, "BRK.B", 16), 11U);
}
