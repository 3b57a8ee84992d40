#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "request/AltIndexInfo.h"
#include "request/RequestImpl.h"

namespace tivra_internal {

class HubClient;

/// A request on its way from send to a hub, with its tag in the text. It has one owner at a time: a queue, a
/// watchlist or the thread that works on it.
class RequestInternal : public RequestImpl {
public:
    /// How far a request that waits for its hub may go.
    enum class Reach {
        OneHub,       ///< it is for this hub alone: when that leaves, another may serve it
        CopyOfSeveral ///< the others have their own: it goes to this hub or nowhere
    };

    /// What the application has built; no tag, no session.
    explicit RequestInternal(const RequestImpl* builder);
    /// A copy for another hub or list. The alternate indexes and the hub aren't copied.
    explicit RequestInternal(const RequestInternal* other);
    /// What a watchlist has kept of a request.
    RequestInternal(const RequestContent& content, int64_t stampedTag);

    /// A copy with the alternate indexes.
    [[nodiscard]] std::unique_ptr<RequestInternal> copyWithAltIndex() const;

    /// Stamps the tag into the text, once.
    void setTag(int64_t newTag);
    [[nodiscard]] int64_t getTag() const noexcept { return tag; }
    [[nodiscard]] std::string getKVNCommand() const { return request; }
    /// Borrowed; the hub outlives its queued requests.
    void setHUB(HubClient* client) noexcept { hub = client; }
    [[nodiscard]] HubClient* getHUB() const noexcept { return hub; }
    /// Gives a request without a command an empty one.
    void setNullCmd();
    /// The tag that this request refers to, -1 when there is none.
    [[nodiscard]] int64_t getUnsubtag() const noexcept { return origTag; }

    /// Becomes the library's own question for the hub that serves a newly granted source.
    void makePortQuestion(int64_t newTag, int source);
    /// Becomes what `other` says, its tag included; the compare string comes out empty.
    void cloneRequest(const RequestInternal* other);
    /// Replaces the command word in the text.
    void modifyCommand(tivra::Commands newCommand);
    /// Replaces the tag in the text; with `saveOrigTag` the old one becomes the tag referred to.
    void modifyTag(int64_t newTag, bool saveOrigTag);
    /// Makes a subscribe a snap and subscribe. Returns the position of the command's pair in the text, npos
    /// when the text holds no such pair and nothing was changed.
    [[nodiscard]] std::size_t convertSubscribeToSnap();

    bool resubHB = false;        ///< the heartbeat must be subscribed again after this request
    bool resubHubStatus = false; ///< the hub status must be subscribed again after this request
    Reach reach = Reach::OneHub;
    bool isWLRetry = false;  ///< a repeated request that its hub's watchlist knows already
    bool isRepeated = false; ///< the application has had an answer, before a restart sent it again
    std::vector<AltIndexInfo> altIndex;
    uint64_t age = 0;                  ///< the session's watchlist numbers what it lists, from 1
    uint64_t outstandingResponses = 0; ///< hubs that have still to finish the tag (watchlist entries)

private:
    HubClient* hub = nullptr;
    int64_t tag = 0;
};

} // namespace tivra_internal
