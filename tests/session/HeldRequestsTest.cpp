#include "session/routing/HeldRequests.h"

#include <memory>
#include <vector>

#include <gmock/gmock.h>

#include "request/RequestImpl.h"
#include "request/RequestInternal.h"

using namespace tivra_internal;

namespace {

std::unique_ptr<RequestInternal> requestOf(int source) {
    RequestImpl builder;
    builder.add(4, source);
    return std::make_unique<RequestInternal>(&builder);
}

} // namespace

TEST(HeldRequestsTest, OneThatIsRefusedAgainKeepsItsPlaceAndTheHubGetsAPause) {
    char place = 0;
    auto* const hub = reinterpret_cast<HubClient*>(&place); // a key, never looked into
    HeldRequests held;
    for (const int source : {100, 101, 102})
        held.hold(hub, requestOf(source), 5.0);
    held.putBack(hub, held.takeFirst(hub), 7.0);
    EXPECT_THAT(held.hubsToTry(7.5, 1.0), testing::IsEmpty());
    EXPECT_THAT(held.hubsToTry(8.0, 1.0), testing::ElementsAre(hub));
    std::vector<int> sources;
    for (const auto& request : held.takeAll())
        sources.push_back(request->getSrcid());
    EXPECT_THAT(sources, testing::ElementsAre(100, 101, 102));
    EXPECT_EQ(held.takeFirst(hub), nullptr);
}
