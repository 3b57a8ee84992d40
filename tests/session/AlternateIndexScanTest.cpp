#include "session/routing/AlternateIndexScan.h"

#include <string>

#include <gtest/gtest.h>

#include "request/RequestInternal.h"

using namespace tivra_internal;

namespace {

TEST(AlternateIndexScan, SubscribeByIdentifierLeavesAsSnapAndSubscribeAndOnlyTheFirstIsMarked) {
    RequestImpl builder;
    builder.setCommand(tivra::SUBSCRIBE);
    builder.add(4, 100);
    builder.add(3123, std::string("037833100"));
    builder.add(3125, std::string("US0378331005"));
    RequestInternal request(&builder);
    request.setTag(20);
    // A request that a full queue held back is routed again from the start.
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_TRUE(scanAlternateIndexes(request));
        EXPECT_EQ(request.getKVNCommand(),
                  "5022=QuerySnapAndSubscribe|4=100|3123=037833100|3125=US0378331005|5026=20");
        EXPECT_EQ(request.getCommand(), tivra::QUERYSNAPANDSUBSCRIBE);
        ASSERT_EQ(request.altIndex.size(), 2U);
        EXPECT_EQ(request.altIndex[0].kvnid, 3123);
        EXPECT_EQ(request.altIndex[0].value, "037833100");
        EXPECT_EQ(request.altIndex[0].command, tivra::SUBSCRIBE);
        EXPECT_TRUE(request.altIndex[0].suppressQuerySnapOutput);
        EXPECT_EQ(request.altIndex[1].value, "US0378331005");
        EXPECT_EQ(request.altIndex[1].command, tivra::QUERYSNAPANDSUBSCRIBE);
        EXPECT_FALSE(request.altIndex[1].suppressQuerySnapOutput);
    }
}

TEST(AlternateIndexScan, IdentifierBeforeTheCommandIsScannedOnceAndPlainPairsAreNone) {
    RequestImpl builder;
    builder.add(5205, 7);
    builder.add(3126, std::string("2046251"));
    builder.setCommand(tivra::SUBSCRIBE);
    builder.add(4, 100);
    builder.add(3123, std::string("037833100"));
    RequestInternal request(&builder);
    request.setTag(21);
    ASSERT_TRUE(scanAlternateIndexes(request));
    EXPECT_EQ(request.altIndex.size(), 2U);
    EXPECT_EQ(request.getKVNCommand(),
              "5205=7|3126=2046251|5022=QuerySnapAndSubscribe|4=100|3123=037833100|5026=21");
}

} // namespace
