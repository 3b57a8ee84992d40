#include "request/CommandClasses.h"

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "request/RequestImpl.h"

using namespace tivra_internal;

TEST(CommandClasses, EachRowStandsAtItsValueWithItsWord) {
    std::istringstream text(
        "Subscribe Unsubscribe QueryDepth QuerySnap QueryWildCard QueryDepthAndSubscribe "
        "QuerySnapAndSubscribe ListEnumeration ListAvailableTokens ListAdministrationInfo "
        "ListExtendedExchangeInfo SelectUserFilterTokens ListSubscribedSymbols QueryXRef "
        "ListUserPermission GetActiveClientsInfo GetAllUsers SetConflationInterval "
        "SubscribeWildCard QuerySnapAndSubscribeWildCard UnsubscribeWildCard "
        "AddAlternateIndex GetSourcePortDetails SetL2ConflationInterval");
    const std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
    ASSERT_EQ(words.size(), COMMAND_TABLE.size());
    for (size_t i = 0; i < words.size(); ++i) {
        EXPECT_EQ(static_cast<size_t>(COMMAND_TABLE[i].command), i);
        EXPECT_STREQ(RequestImpl::getCommandString(static_cast<tivra::Commands>(i)), words[i].c_str());
    }
    EXPECT_EQ(RequestImpl::getCommandString(static_cast<tivra::Commands>(24)), nullptr);
}

TEST(CommandClasses, ClassesHoldExactlyTheirCommands) {
    std::vector<int> query, subscribe, snap;
    for (int i = 0; i < 32; ++i) {
        const auto command = static_cast<tivra::Commands>(i);
        if (isQueryCommand(command))
            query.push_back(i);
        if (isSubscribeCommand(command))
            subscribe.push_back(i);
        if (isSnapCommand(command))
            snap.push_back(i);
    }
    EXPECT_EQ(query, (std::vector<int>{2, 3, 4, 5, 6, 12, 13, 19, 22}));
    EXPECT_EQ(subscribe, (std::vector<int>{0, 5, 6, 18, 19}));
    EXPECT_EQ(snap, (std::vector<int>{2, 3, 4, 7, 8, 9, 10, 12, 13, 14, 15, 16, 22}));
}
