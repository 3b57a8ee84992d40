// The log of the process, as an application of feeds sees it.
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tp/eprintf.h>

#include "FeedFixture.h"
#include "feed/LogAreaOf.h"

using tivra::LogArea;

TEST(Log, LinesBelongToTheAreaOfTheirSource) {
    const std::pair<const char*, LogArea> cases[] = {
        {"/x/src/hub/HubClient.cpp", LogArea::Connection},
        {"/x/src/session/lifecycle/Supervisor.cpp", LogArea::Connection},
        {"/x/src/hub/handshake/LoginStep.cpp", LogArea::Login},
        {"/x/src/hub/handshake/DictionaryStep.cpp", LogArea::Dictionary},
        {"/x/src/dictionary/MetaTokenMap.cpp", LogArea::Dictionary},
        {"/x/src/session/routing/RequestQueue.cpp", LogArea::Requests},
        {"/x/src/request/Watchlist.cpp", LogArea::Requests},
        {"/x/src/receive/QueueSocket.cpp", LogArea::Queue},
        {"/x/src/receive/QueueStatistics.cpp", LogArea::Statistics},
        {"/x/src/feed/FeedRegistry.cpp", LogArea::Other}};
    for (const auto& [file, area] : cases)
        EXPECT_EQ(tivra_internal::logAreaOf(file), area) << file;
}

TEST(Log, ASinkOfAFeedWithoutAFileSeesAnOutageBeginAndEnd) {
    Story story;
    tivra::Log::setSink([&](const tivra::LogLine& line) {
        if (line.area == LogArea::Connection && line.level <= tivra::LogLevel::Warning)
            story.add("lost");
        if (line.area == LogArea::Connection && line.text.find("is back after") != std::string_view::npos)
            story.add("back");
    });
    tivra_testkit::StartedHub hub;
    {
        const tivra::Feed feed = tivra::Feed::open(optionsFor(hub));
        EXPECT_TRUE(hub.waitForLogins(1));
        hub.dropConnections();
        EXPECT_TRUE(story.waitFor("back"));
    }
    tivra::Log::setSink(nullptr);
    EXPECT_EQ(story.lines().front(), "lost");
}
