#pragma once

#include <cstdint>
#include <string>

namespace tivra_internal {

class HubClient;
class MetaTokenMap;

/// What a read handler may ask of the connection whose queue it drains. @thread user
class ReadHandlerHub {
public:
    virtual ~ReadHandlerHub() = default;

    /// The connection as an identity to hand to the session; not to be called through.
    [[nodiscard]] virtual HubClient* client() = 0;
    /// True for the pseudo connection that carries the library's own messages.
    [[nodiscard]] virtual bool isDummy() const = 0;
    [[nodiscard]] virtual std::string getHubAddr() const = 0;
    [[nodiscard]] virtual MetaTokenMap& getDicMetaMap() = 0;
    /// Bytes or a heartbeat have been seen; the supervisor's time-out test reads it.
    virtual void setHBSeen(bool seen) = 0;
    /// The hub watchlist's verdict on a response: true when a retry has consumed it.
    [[nodiscard]] virtual bool handleWatchlistResponse(int64_t tag, int64_t status) = 0;
};

} // namespace tivra_internal
