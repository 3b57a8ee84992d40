#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hub/RetryPace.h"
#include "tls/TlsSettings.h"

namespace tivra_internal {

class AllowedHubs;
class HostConfigImpl;

/// What a hub client is made from.
struct HubClientOptions {
    std::string label{};                        ///< host and port, for people; empty for a dummy
    std::string address{};                      ///< as configured, or as another hub has named it
    std::vector<std::string> addressesOfName{}; ///< all; empty for a host without a name
    std::size_t port = 0;
    std::size_t index = 0;          ///< of the host in the session's tables
    HostConfigImpl* host = nullptr; ///< its settings; borrowed
    long connectionTimeout = 0;     ///< seconds
    long connectionRetryLimit = 0;
    long readTimeout = 0;       ///< seconds; 0 turns the heartbeat and both time-out tests off
    double dialNotBefore = 0.0; ///< monotonic, in seconds
    /// Between dials that fail; without them there is one a second.
    std::optional<RetryPauses> pauses{};
    long queueSize = 0; ///< megabytes
    bool compression = false;
    TlsSettings tls{};
    bool stopAfterRefusal = false;                    ///< of the login
    std::shared_ptr<const AllowedHubs> allowedHubs{}; ///< null: all are
    bool onlyAllowedHubs = false;                     ///< others are not dialled, instead of a warning
    bool watchlistInUse = false;
    bool inlineDelivery = false; ///< the thread that reads delivers too
    bool holdReads = false;      ///< for want of room, instead of closing the stream or dropping of it
    bool stampArrivals = false;  ///< messages have the time when the kernel got them
    bool isDummy = false;        ///< a placeholder with a queue, but without socket and reactor

    /// The same with numbers that the client can work with.
    [[nodiscard]] HubClientOptions withinLimits() const;
};

} // namespace tivra_internal
