#pragma once

namespace tivra_internal {

class HubClient;
struct HubReport;

/// The hubs of a session as one of them asks: who is first, who is lost, who is ready. @thread hub; every
/// operation locks for itself.
class SessionHubs {
public:
    virtual ~SessionHubs() = default;

    /// Makes the client the session's `firstHubClient` when there is none yet.
    virtual void claimFirstHubClient(HubClient* client) = 0;
    /// True for `firstHubClient`, the one that loads the enumeration.
    [[nodiscard]] virtual bool isFirstHubClient(const HubClient* client) const = 0;
    /// True for the newest first hub, which runs the dictionary and port steps (`getfirstHubClientFrmLst`).
    [[nodiscard]] virtual bool isNewestFirstHub(const HubClient* client) const = 0;
    /// The start goes on without this first hub, so it waits for no other.
    [[nodiscard]] virtual bool isLateFirstHub(const HubClient* client) const = 0;
    /// This first hub was only a door: it is dropped once the others are up.
    virtual void dropFirstHubLater(HubClient* client) = 0;

    /// What a hub has come to, or what it says of the user, has changed: those who look at that look soon.
    virtual void hubHasChanged() = 0;
    /// A hub has come to another stage.
    virtual void reportHub(const HubReport& report) = 0;
    /// Puts the client into `m_hubDownLst`.
    virtual void noteHubDown(HubClient* client) = 0;
    /// A hub's queue has come to its threshold, at so many percent.
    virtual void noteQueueDepth(int percent) = 0;
    /// Adds one to `m_downSinceLastCheck`; called for a client that was ready when its connection closed.
    virtual void countHubLoss(HubClient* client) = 0;
    /// Under `newQRHQueue_mutex`: calls `client->markReady()` and queues the client for a read handler when
    /// it has none.
    virtual void enterReadyHub(HubClient* client) = 0;
};

} // namespace tivra_internal
