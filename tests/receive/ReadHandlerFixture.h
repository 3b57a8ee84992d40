#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ReadHandlerFakes.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"

namespace tivra_internal {

/// What a request says of an alternate index.
inline AltIndexInfo index(int token, const char* value, tivra::Commands command, bool suppress = false) {
    AltIndexInfo info;
    info.kvnid = token;
    info.tokname = std::to_string(token);
    info.value = value;
    info.command = command;
    info.suppressQuerySnapOutput = suppress;
    return info;
}

/// A read handler between fakes, fed with real frames.
class ReadHandlerTest : public testing::Test {
protected:
    ReadHandlerTest() { session.handler = &application; }

    QueueReadHandler& handler() {
        if (readHandler == nullptr)
            readHandler =
                std::make_unique<QueueReadHandler>(&queue, session, nullptr, nullptr, hub, watchlistInUse);
        return *readHandler;
    }

    /// What the application got of one message, empty when it got nothing.
    std::string receive(std::string_view body) {
        application.lines.clear();
        uint64_t delivered = 0;
        std::string frame = frameOf(body);
        failures = handler().process_kvn_buffer(frame.data(), frame.size(), &delivered);
        EXPECT_EQ(delivered, application.lines.size()) << body;
        return application.lines.empty() ? std::string() : application.lines.front();
    }

    FakeHub hub;
    FakeSession session;
    RecordingApplication application;
    Queue queue{1, false, nullptr, 70};
    bool watchlistInUse = false;
    unsigned failures = 0;
    std::unique_ptr<QueueReadHandler> readHandler;
};

} // namespace tivra_internal
