#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_set>

#include <tp/Mutex.h>

#include "LockOrder.h"
#include "request/CommandClasses.h"

namespace tivra_internal {

class HubClient;
class RequestInternal;

/// What a session has been asked for and still owes: every standing or unanswered request, whichever hubs it
/// went to. Used by all threads of the session; owns its copies of the requests.
class Watchlist {
public:
    Watchlist();
    ~Watchlist();
    Watchlist(const Watchlist&) = delete;
    Watchlist& operator=(const Watchlist&) = delete;

    /// Lists a copy of the request. An unsubscribe is rewritten in place into the text that the hubs need.
    /// @thread application, under the session's request mutex
    void add(int64_t tag, RequestInternal& request);

    /// A hub holds the tag.
    void addHub(int64_t tag, HubClient* hubClient);
    /// A hub has dropped the tag; the last one takes the request off the list.
    void removeHub(int64_t tag, HubClient* hubClient);
    void removeAllHubs();
    /// Takes off what the application has unsubscribed: the hubs that have still to finish it are gone.
    void forgetUnsubscribed();

    /// As many hubs must finish the tag.
    void setExpectedResponses(int64_t tag, unsigned long expectedResponses);
    /// One hub fewer than expected gets the request; the count stays at 1 or above.
    void lowerExpectedResponses(int64_t tag);

    [[nodiscard]] static bool isSubscribeCommand(tivra::Commands command) noexcept {
        return tivra_internal::isSubscribeCommand(command);
    }
    [[nodiscard]] std::size_t size() const;
    /// The highest tag listed, 0 when the list is empty.
    [[nodiscard]] int64_t highestTag() const;
    /// A copy of the entry with the lowest tag above `lastTag`, or null.
    [[nodiscard]] std::unique_ptr<RequestInternal> getNextRequest(int64_t lastTag) const;

private:
    void unsubscribe(RequestInternal& request);
    void remove(int64_t tag, bool saveCmdTagMapEntry) TP_REQUIRES(m_watchlist_mutex);
    /// The tag's entry has one response less to come; true when it was the last.
    [[nodiscard]] bool countResponse(int64_t tag) TP_REQUIRES(m_watchlist_mutex);

    mutable tp::Mutex m_watchlist_mutex{kLockWatchlist}; ///< guards the three maps
    std::map<int64_t, std::unique_ptr<RequestInternal>> watchlistMap TP_GUARDED_BY(m_watchlist_mutex);
    std::map<int64_t, std::unordered_set<HubClient*>> tagHubMap TP_GUARDED_BY(m_watchlist_mutex);
    /// Compare string to the tag that now stands for that command.
    std::map<std::string, int64_t> cmdTagMap TP_GUARDED_BY(m_watchlist_mutex);
    /// Listed tags that the application has unsubscribed.
    std::set<int64_t> m_unsubscribed TP_GUARDED_BY(m_watchlist_mutex);
};

} // namespace tivra_internal
