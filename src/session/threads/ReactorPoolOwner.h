#pragma once

namespace tivra_internal {

class HubEventReactor;
class UserEventReactor;

/// What the configuration says of the threads of a session.
struct ThreadLimits {
    bool multithreaded = false;
    long maxHubThreads = 0; ///< 0: no limit, as the next
    long maxUserThreads = 0;
    long maxRequestQueueSize = 0; ///< of each hub
};

/// What a ReactorPool asks of its session.
class ReactorPoolOwner {
public:
    virtual ~ReactorPoolOwner() = default;

    [[nodiscard]] virtual ThreadLimits threadLimits() = 0;
    /// The whole life of a hub thread, with its timers. @thread hub
    virtual void startHubEventReactor(HubEventReactor& reactor) = 0;
    /// The whole life of a user thread; the first one has further timers. @thread user
    virtual void startUserEventReactor(UserEventReactor& reactor, bool isFirst) = 0;
    /// The system refuses a thread; `isOnlyOne` when there is none of its kind.
    virtual void noteThreadRefused(const char* text, bool isOnlyOne) = 0;
};

} // namespace tivra_internal
