#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tivra_internal {

class HubClient;
class HubEventReactor;
class RequestInternal;

/// How far the cross-reference hubs are, of a session behind a connection manager.
struct XrefStanding {
    bool isCMconnection = false;
    bool isNeeded = false; ///< something has needed them
    bool isDone = false;   ///< all are connected
};

/// What a RequestRouter asks of its session. @thread master, unless a line says otherwise
class RouterSession {
public:
    virtual ~RouterSession() = default;

    [[nodiscard]] virtual bool watchlistInUse() = 0;       ///< @thread any
    [[nodiscard]] virtual bool isShuttingDown() const = 0; ///< @thread any
    [[nodiscard]] virtual std::string userName() const = 0;

    /// The default hub, null while there is none. @thread any
    [[nodiscard]] virtual HubClient* firstHub() const = 0;
    /// The hubs that get what is for all.
    [[nodiscard]] virtual std::vector<HubClient*> hubsForAll() const = 0;
    /// The reactor that serves the hub, null when none does. @thread any
    [[nodiscard]] virtual HubEventReactor* reactorOf(HubClient* hub) = 0;

    [[nodiscard]] virtual XrefStanding xrefStanding() const = 0;
    /// The request is about to be routed, and may be the first that needs the cross-reference hubs.
    virtual void connectXrefHubsFor(const RequestInternal& request) = 0;
    /// It waits for an attempt to connect them; false: it is answered without them.
    [[nodiscard]] virtual bool waitsForXrefHubs(std::unique_ptr<RequestInternal>& request) = 0;
    /// The default hub answers in their place.
    virtual void noteSentWithoutXrefHubs(int64_t tag) = 0;

    /// A request that no hub answers.
    virtual void enterPortDetailsRequest(std::unique_ptr<RequestInternal>& request) = 0;
    /// A later reconnect negotiates the interval that the application has set last.
    virtual void storeConflationInterval(long interval) = 0;
    /// The library's own question for the hub of a granted source must be asked again. @thread any
    virtual void sendPortQuestion(std::unique_ptr<RequestInternal>& request, int source) = 0;
};

} // namespace tivra_internal
