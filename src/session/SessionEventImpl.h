#pragma once

#include <string>
#include <utility>

#include <event/SessionEvent.h>

namespace tivra_internal {

/// One session event. Made by any thread, read on the first user thread; borrows the session.
class SessionEventImpl {
public:
    SessionEventImpl(tivra::SessionEvent::Types eventType, tivra::Session& eventSession, std::string version,
                     int source, int depth)
        : type(eventType)
        , session(eventSession)
        , dicVersion(std::move(version))
        , sourceID(source)
        , queueDepth(depth) {}

    [[nodiscard]] tivra::SessionEvent::Types getType() const { return type; }
    [[nodiscard]] tivra::Session& getSession() const { return session; }
    [[nodiscard]] const std::string& getDicVersion() const { return dicVersion; }
    [[nodiscard]] int getSourceID() const { return sourceID; }
    [[nodiscard]] int getQueueDepth() const { return queueDepth; }

private:
    const tivra::SessionEvent::Types type;
    tivra::Session& session;
    const std::string dicVersion;
    const int sourceID;
    const int queueDepth;
};

} // namespace tivra_internal
