#include "session/routing/ResponseBook.h"

#include <vector>

#include <gtest/gtest.h>

#include "request/RequestImpl.h"
#include "request/RequestInternal.h"

using namespace tivra_internal;

namespace {

// Hubs are identities here: the book never looks inside one.
HubClient* hub(int number) {
    static char identities[3];
    return reinterpret_cast<HubClient*>(&identities[number]);
}

class ResponseBookTest : public testing::Test {
protected:
    ResponseBookTest() {
        RequestImpl builder;
        builder.setCommand(tivra::QUERYSNAP);
        request = std::make_unique<RequestInternal>(&builder);
        request->setTag(18);
    }

    /// '-': not in flight, '!': not awaited, '.': kept from the application, 'E': the end.
    char answerOf(int number) {
        const auto answer = book.answer(18, hub(number), -number, 2);
        return !answer ? '-' : !answer->isAwaited ? '!' : answer->isLast ? 'E' : '.';
    }

    ResponseBook book;
    std::unique_ptr<RequestInternal> request;
};

TEST_F(ResponseBookTest, EachHubThatWasAskedCountsOnce) {
    book.expect(*request, {hub(0), hub(1)}, false);
    EXPECT_FALSE(book.expectNew(*request, hub(1), 0)) << "the copy for one of them";
    std::string seen;
    for (const int number : {0, 0, 2, 1, 1})
        seen += answerOf(number);
    EXPECT_EQ(seen, ".!!E-");
    EXPECT_EQ(book.commandOf(18), std::nullopt);
}

TEST_F(ResponseBookTest, AReplayIsAwaitedOncePerHubAndARequestThatGoesNowhereIsForgotten) {
    EXPECT_TRUE(book.expectNew(*request, hub(0), 0));
    for (const int number : {0, 1, 1})
        book.expectAgain(*request, hub(number));
    EXPECT_EQ(answerOf(0), '.');
    EXPECT_EQ(book.takeBack(18), 0);
    EXPECT_TRUE(book.expectNew(*request, hub(2), 77));
    EXPECT_EQ(book.takeBack(18), 77) << "the library's own question";
    EXPECT_EQ(answerOf(2), '-');
}

} // namespace
