#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>

#include <tp/Mutex.h>

#include "LockOrder.h"
#include "request/CommandClasses.h"
#include "request/RequestInternal.h"
#include "request/SameRequests.h"
#include "request/StandingRequest.h"

namespace tivra_internal {

class HubClient;
class HubName;
class RequestSender;
class Watchlist;

/// The requests that were written to one hub, for a replay after a reconnect. Filled on the hub thread,
/// emptied by responses on the user thread.
class HubWatchlist {
public:
    /// All arguments are borrowed and outlive the list.
    HubWatchlist(HubClient* hub, const HubName& hubName, Watchlist& sessionList, RequestSender& sender);
    ~HubWatchlist();
    HubWatchlist(const HubWatchlist&) = delete;
    HubWatchlist& operator=(const HubWatchlist&) = delete;

    /// The request has been written. An unsubscribe ends the subscription on this hub and isn't listed.
    void add(int64_t tag, std::unique_ptr<RequestInternal> request);
    /// The tag counts as answered: a standing request that nothing has replaced stays, the rest leaves.
    void noteAnswer(int64_t tag);

    /// The application has unsubscribed the tag while the hub was out of the session.
    void forget(int64_t tag) { remove(tag); }

    /// A response with a status has come. True: the hub was busy and a retry has consumed the response, which
    /// must not reach the application.
    [[nodiscard]] bool handleResponse(int64_t tag, int64_t status);
    /// False for the retry of a tag that an unsubscribe or a replay has overtaken. @thread hub
    [[nodiscard]] bool isRetryWanted(int64_t tag) const;
    /// The retry of a tag has been written or never will be: a busy hub may cause the next one. @thread hub
    void endRetry(int64_t tag);
    /// The tag has been written once more after a reconnect: no retry is wanted, and its answer is due anew.
    /// @thread hub
    void noteReplay(int64_t tag);

    [[nodiscard]] static bool isSnapCommand(tivra::Commands command) noexcept {
        return tivra_internal::isSnapCommand(command);
    }
    [[nodiscard]] std::size_t size() const;
    [[nodiscard]] bool contains(int64_t tag) const;
    /// A copy, alternate indexes and hub included, of the entry with the lowest tag above `lastTag`, or null.
    [[nodiscard]] std::unique_ptr<RequestInternal> getNextRequest(int64_t lastTag) const;
    /// False when the tag is unknown.
    [[nodiscard]] bool getCommand(int64_t tag, tivra::Commands& command) const;

private:
    /// The status of a hub that is too busy to take a request now.
    static constexpr int64_t kHubBusy = -218;

    /// What the lists of a session share, and what is known of it here.
    struct Entry {
        std::shared_ptr<const StandingRequest> request;
        RequestInternal::Reach reach;
        bool isAnswered = false; ///< since it was written last
    };

    [[nodiscard]] bool retry(int64_t tag);
    [[nodiscard]] std::unique_ptr<RequestInternal> makeRequest(const Entry& entry) const;
    void addNew(int64_t tag, Entry added);
    void unsubscribe(int64_t tag);
    void remove(int64_t tag);

    HubClient* const m_hub;
    const HubName& m_hubName;
    Watchlist& m_sessionList;
    RequestSender& m_sender;

    mutable tp::Mutex m_watchlist_mutex{kLockHubWatchlist}; ///< guards what follows
    std::map<int64_t, Entry> watchlistMap TP_GUARDED_BY(m_watchlist_mutex);
    SameRequests m_sameRequests TP_GUARDED_BY(m_watchlist_mutex); ///< the entries of watchlistMap
    /// Tags whose retry waits to be written.
    std::set<int64_t> m_retryTags TP_GUARDED_BY(m_watchlist_mutex);
};

} // namespace tivra_internal
