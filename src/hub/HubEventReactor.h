#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <tp/EventReactor.h>
#include <tp/Mutex.h>

#include "LockOrder.h"
#include "hub/RequestPace.h"

namespace tivra_internal {

class HubClient;
class RequestInternal;

/// The loop that serves a group of hubs: it reads their sockets and writes the requests that other threads
/// push. It owns the requests that wait, in a queue for each hub: a hub that can't be written to holds up
/// its own requests and nobody else's. Everything but `pushRequest` and `end` runs on its own hub thread.
class HubEventReactor final : public tp::EventReactor {
public:
    /// What its loop may be asked for.
    enum Ask : unsigned {
        kWriteRequests = 1U << 0U, ///< requests wait that could be written
        kSupervise = 1U << 1U,     ///< a hub has changed, or is new
        kContinue = 1U << 2U,      ///< something that a hub has waited for is there
        kEnd = 1U << 3U
    };

    HubEventReactor(int index, long maxQueueSize);
    ~HubEventReactor() override;
    HubEventReactor(const HubEventReactor&) = delete;
    HubEventReactor& operator=(const HubEventReactor&) = delete;

    /// Takes the request over and returns true, or leaves it with the caller when the queue of its hub is
    /// full. `force` lets the queue grow instead. @thread any
    [[nodiscard]] bool pushRequest(std::unique_ptr<RequestInternal>& request, bool force)
        TP_EXCLUDES(m_request_mutex);
    /// Writes as many as the pace allows. Returns after how many seconds to go on, nothing when no request
    /// waits.
    [[nodiscard]] std::optional<double> writeRequests() TP_EXCLUDES(m_request_mutex);
    /// Writes at most `budget` requests, hub by hub in turn, and for each hub its replay before its new ones;
    /// returns the number sent.
    int handle_hub_requests(unsigned budget) TP_EXCLUDES(m_request_mutex);
    /// The client has become ready: its standing requests go out again, in the order of their tags.
    void sendWLRequests(HubClient* client) TP_EXCLUDES(m_request_mutex);
    /// The client has closed: it replays nothing until it is ready again.
    void forgetClient(HubClient* client) TP_EXCLUDES(m_request_mutex);

    /// The client is taken out of the session: gives back the requests that wait for it. @thread any
    [[nodiscard]] std::vector<std::unique_ptr<RequestInternal>> takeRequestsOf(HubClient* client)
        TP_EXCLUDES(m_request_mutex);

    /// Asks the loop to end; it does so at the next checkExit(). @thread any
    void end() override {
        mustExit.store(true);
        ask(kEnd);
    }
    void checkExit();

    [[nodiscard]] int getIndex() const { return index; }

private:
    struct Pass;
    using RequestQueue = std::deque<std::unique_ptr<RequestInternal>>;
    enum class Sent { Yes, No, TooLong };

    /// Returns how many were written, and in `budget` what is left of it.
    int write(unsigned& budget, double now) TP_EXCLUDES(m_request_mutex);
    [[nodiscard]] bool hasRequests() TP_EXCLUDES(m_request_mutex);
    [[nodiscard]] std::deque<HubClient*> hubsInTurn() const TP_REQUIRES(m_request_mutex);
    [[nodiscard]] bool serveHub(HubClient& client, Pass& pass) TP_REQUIRES(m_request_mutex);
    [[nodiscard]] bool sendNext(HubClient& client, RequestQueue& queue, Pass& pass)
        TP_REQUIRES(m_request_mutex);
    [[nodiscard]] bool replayNext(HubClient& client, const RequestInternal& request, int64_t& lastTag,
                                  Pass& pass) TP_REQUIRES(m_request_mutex);
    [[nodiscard]] Sent sendTo(HubClient& client, const RequestInternal& request, Pass& pass)
        TP_REQUIRES(m_request_mutex);
    void finish(HubClient& client, const RequestInternal& request, Pass& pass) TP_REQUIRES(m_request_mutex);

    tp::Mutex m_request_mutex{
        kLockReactorRequest}; ///< guards the four below, also while requests are written
    /// What waits for each hub, in the order in which it was pushed. A hub may have an empty queue.
    std::map<HubClient*, RequestQueue> requestQueue TP_GUARDED_BY(m_request_mutex);
    /// Hubs that replay their watchlist, each with the tag last replayed.
    std::map<HubClient*, int64_t> hubsSendingWLrequests TP_GUARDED_BY(m_request_mutex);
    /// Hubs that took nothing, and until when they are passed over: each try costs the others time.
    std::map<const HubClient*, double> m_blockedUntil TP_GUARDED_BY(m_request_mutex);
    const HubClient* m_lastServed TP_GUARDED_BY(m_request_mutex) = nullptr; ///< its turn is the last one now

    const int index;
    const std::size_t requestQueueMaxSize; ///< for each hub
    std::atomic<bool> mustExit{false};
    RequestPace m_pace;
};

} // namespace tivra_internal
