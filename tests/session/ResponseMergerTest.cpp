#include "session/routing/ResponseMerger.h"

#include <memory>
#include <vector>

#include <gmock/gmock.h>

#include "kvnparse/Message.h"
#include "receive/ReadHandlerSession.h"
#include "request/RequestImpl.h"
#include "session/HubClients.h"
#include "session/routing/LostRequests.h"
#include "session/routing/MergerSession.h"
#include "session/routing/ResponseBook.h"

using namespace tivra_internal;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A snapshot of one hub and a cross-reference query of two, written to all of them. `ends`: what is lost is
/// to be seen.
class ResponseMergerTest : public testing::TestWithParam<bool>, protected MergerSession {
protected:
    static constexpr int64_t kSnap = 18;
    static constexpr int64_t kXref = 19;

    ResponseMergerTest() {
        ask(kSnap, tivra::QUERYSNAP, {hubs[0]});
        ask(kXref, tivra::QUERYXREF, {hubs[0], hubs[1]});
    }
    bool watchlistInUse() override { return false; }
    bool isEndingLostRequests() override { return ends; }
    void finishAddNewEntitlement(int, KVNAPI::Message&, MetaTokenMap&) override { FAIL(); }

    void ask(int64_t tag, tivra::Commands command, const std::vector<HubClient*>& of) {
        RequestImpl builder;
        builder.setCommand(command);
        RequestInternal request(&builder);
        request.setTag(tag);
        book.expect(request, of, false);
        for (HubClient* hub : of)
            book.noteWritten(tag, hub);
    }
    /// The status by which an answer reaches the application, 1 when it is kept from it.
    int64_t answer(int64_t tag, int64_t status, HubClient* from) {
        KVNAPI::Message msg;
        KVNAPI::TVPair* const pair = msg.addPair();
        pair->setI(nullptr, status);
        return merger.suppressResponse(tag, msg, nullptr, pair, dictionary, from) ? 1 : pair->i;
    }
    std::vector<int64_t> lostTags(HubClient* hub) {
        std::vector<int64_t> tags;
        for (LostRequest next; merger.takeLostRequest(hub, true, next);) {
            tags.push_back(next.tag);
            EXPECT_EQ(answer(next.tag, next.status, hub), kStatusConnectionLost);
        }
        return tags;
    }
    /// A session check reports what has been lost before.
    void check() {
        lost.beginCheck();
        lost.endCheck();
    }

    const bool ends = GetParam();
    HubClients hubs{2};
    ResponseBook book;
    LostRequests lost;
    Watchlist watchlist;
    MetaTokenMap dictionary;
    ResponseMerger merger{*this, {book, lost, watchlist}};
};

TEST_P(ResponseMergerTest, WhatALostHubOwesEndsOnceItIsReportedOrNeverClaimsToBeWhole) {
    merger.endOutstanding(hubs[0]);
    EXPECT_THAT(lostTags(hubs[0]), IsEmpty()) << "not before the session check";
    check();
    EXPECT_EQ(answer(kXref, 0, hubs[1]), 1) << "the other hub's share";
    EXPECT_EQ(answer(kXref, 0, hubs[1]), 1) << "a second answer of that hub reaches nobody";
    if (ends)
        EXPECT_THAT(lostTags(hubs[0]), ElementsAre(kSnap, kXref));
    else
        EXPECT_THAT(lostTags(hubs[0]), IsEmpty());
    EXPECT_THAT(lostTags(hubs[0]), IsEmpty()) << "once";
    EXPECT_EQ(book.commandOf(kSnap), std::nullopt);
}

TEST_P(ResponseMergerTest, WhenAllHubsGoWhatNobodyRepeatsEndsInTheNameOfNobody) {
    hubs[1]->life().retire();
    merger.endOutstanding(hubs[1]);
    const RequestImpl builder;
    RequestInternal standing(&builder);
    watchlist.add(20, standing);
    ask(20, tivra::SUBSCRIBE, {hubs[0]});
    merger.abandonResponses(false);
    check();
    if (ends)
        EXPECT_THAT(lostTags(nullptr), ElementsAre(kSnap, kXref));
    else
        EXPECT_THAT(lostTags(nullptr), IsEmpty());
    ask(kSnap, tivra::QUERYSNAP, {hubs[0]});
    merger.abandonResponses(true);
    check();
    EXPECT_THAT(lostTags(nullptr), IsEmpty()) << "a stop says nothing";
}

INSTANTIATE_TEST_SUITE_P(Session, ResponseMergerTest, testing::Bool());

} // namespace
