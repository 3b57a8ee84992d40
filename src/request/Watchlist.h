#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include <tp/Mutex.h>

#include "LockOrder.h"
#include "request/CommandClasses.h"
#include "request/SameRequests.h"
#include "request/StandingRequest.h"

namespace tivra_internal {

class HubClient;
class RequestInternal;

/// What a session has been asked for and still owes: every standing or unanswered request, whichever hubs it
/// went to. Used by all threads of the session.
class Watchlist {
public:
    Watchlist();
    ~Watchlist();
    Watchlist(const Watchlist&) = delete;
    Watchlist& operator=(const Watchlist&) = delete;

    /// Lists a copy of the request. One that says the same as an older one takes its place; that stays until
    /// its hubs have answered it, but can't be unsubscribed any more. An unsubscribe is rewritten in place
    /// into the text that the hubs need.
    /// @thread application, under the session's request mutex
    void add(int64_t tag, RequestInternal& request);

    /// What a hub's list is to keep of a request: the object that this list holds, when it still says the
    /// same.
    [[nodiscard]] std::shared_ptr<const StandingRequest> share(int64_t tag,
                                                               const RequestInternal& request) const;
    /// A hub holds the tag.
    void addHub(int64_t tag, HubClient* hubClient);
    /// A hub has dropped the tag; the last one takes the request off the list.
    void removeHub(int64_t tag, HubClient* hubClient);
    void removeAllHubs();
    /// Takes off what the application has unsubscribed: the hubs that have still to finish it are gone.
    void forgetUnsubscribed();
    /// Takes off what its answer ends: nobody waits for that any more.
    void forgetQuestions();
    /// Listed tags that the application has unsubscribed, as long as a hub holds them.
    [[nodiscard]] std::set<int64_t> unsubscribedTags() const;

    /// As many hubs must finish the tag.
    void setExpectedResponses(int64_t tag, unsigned long expectedResponses);
    /// One hub fewer than expected gets the request; the count stays at 1 or above.
    void lowerExpectedResponses(int64_t tag);

    [[nodiscard]] static bool isSubscribeCommand(tivra::Commands command) noexcept {
        return tivra_internal::isSubscribeCommand(command);
    }
    [[nodiscard]] std::size_t size() const;
    [[nodiscard]] bool contains(int64_t tag) const;
    /// The highest tag listed, 0 when the list is empty.
    [[nodiscard]] int64_t highestTag() const;
    /// A copy of the entry with the lowest tag above `lastTag`, or null.
    [[nodiscard]] std::unique_ptr<RequestInternal> getNextRequest(int64_t lastTag) const;

private:
    struct Entry {
        std::shared_ptr<const StandingRequest> request;
        uint64_t outstandingResponses = 0; ///< hubs that have still to finish the tag
        HubClient* hub = nullptr;          ///< one that holds the tag; what more there are stand in tagHubMap
    };

    void unsubscribe(RequestInternal& request);
    /// The entry of a tag; null when there is none or a newer request has taken its place.
    [[nodiscard]] const Entry* findCurrent(int64_t tag) const TP_REQUIRES(m_watchlist_mutex);
    void remove(int64_t tag) TP_REQUIRES(m_watchlist_mutex);
    /// The tag's entry has one response less to come; true when it was the last.
    [[nodiscard]] bool countResponse(int64_t tag) TP_REQUIRES(m_watchlist_mutex);

    [[nodiscard]] static std::unique_ptr<RequestInternal> makeRequest(const Entry& entry);
    /// No hub holds the tag.
    void releaseAll(int64_t tag) TP_REQUIRES(m_watchlist_mutex);
    /// Whether any hub holds the tag.
    [[nodiscard]] bool isHeld(int64_t tag) const TP_REQUIRES(m_watchlist_mutex);

    mutable tp::Mutex m_watchlist_mutex{kLockWatchlist}; ///< guards what follows
    std::map<int64_t, Entry> watchlistMap TP_GUARDED_BY(m_watchlist_mutex);
    /// The hubs that hold a tag, a pair for each, but for the one that its entry has.
    std::set<std::pair<int64_t, HubClient*>> tagHubMap TP_GUARDED_BY(m_watchlist_mutex);
    SameRequests m_sameRequests TP_GUARDED_BY(m_watchlist_mutex); ///< the entries of watchlistMap
    uint64_t m_lastAge TP_GUARDED_BY(m_watchlist_mutex) = 0;      ///< of the newest entry
    /// Listed tags that the application has unsubscribed.
    std::set<int64_t> m_unsubscribed TP_GUARDED_BY(m_watchlist_mutex);
};

} // namespace tivra_internal
