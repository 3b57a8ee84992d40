// Message callbacks on the thread that reads.
#include "Client.h"

#include <array>
#include <atomic>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <pthread.h>

namespace token = tivra_sim::token;

namespace {

std::string threadName() {
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    return name.data();
}

} // namespace

TEST(InlineCallbacks, ComeInOrderOnTheReadingThreadWhereSendWorksAndStopIsRefused) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.heartbeat.enabled = config.hubStatus.enabled = false; // nothing else is in a read
    StartedHub hub(config);
    Client client(hub);
    client.connections().set(tivra::HostConfig::READ_TIMEOUT_LONG, 0);
    client.settings().set(tivra::SessionConfig::INLINE_CALLBACKS_BOOL, true);
    constexpr int kUpdates = 3'000;
    std::atomic<int> received{0};
    std::atomic<std::int64_t> asked{0};
    std::atomic<bool> isInOrder{true}, isAnswered{false};
    std::set<std::string> deliverers;
    client.messageHook = [&](const tivra::MessageEvent& event) {
        if (event.getType() == tivra::MessageEvent::IMAGE_COMPLETE && event.getTag() == asked)
            isAnswered = true;
        tivra::MessageReader& reader = event.getReader();
        if (event.getType() == tivra::MessageEvent::UPDATE && reader.find(token::SEQUENCE)) {
            isInOrder = isInOrder && reader.getValueAsInteger() == received;
            deliverers.insert(threadName());
            if (received == 0) {
                asked = client.send(tivra::QUERYSNAP, 100, "IBM");
                client.session().stop();
            }
            ++received;
        }
        client.notify();
    };
    ASSERT_TRUE(client.startAndWait());
    client.send(tivra::SUBSCRIBE, 100, "IBM");
    ASSERT_TRUE(hub.waitForSubscriptions(1));
    const auto push = [&](int sequence) {
        hub.pushRecord(tivra_sim::Record(100, "IBM").add(token::SEQUENCE, sequence));
    };
    push(0);
    ASSERT_TRUE(client.waitUntil([&] { return isAnswered.load(); }));
    EXPECT_TRUE(client.waitForLog("stop called on a library thread; ignoring stop request"));
    for (int i = 1; i < kUpdates; ++i)
        push(i);
    EXPECT_TRUE(client.waitUntil([&] { return received == kUpdates; }));
    EXPECT_TRUE(isInOrder);
    EXPECT_EQ(deliverers.count("tivra-hub0"), 1U) << "what takes long is a user thread's, but not everything";
    EXPECT_LT(client.timedStop(), std::chrono::seconds(10));
    EXPECT_EQ(received, kUpdates);
}
