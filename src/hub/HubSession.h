#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <event/SessionEvent.h>
#include <session/Session.h>

namespace tivra_internal {

class ConnectionManagers;
class DictionaryCache;
class HostConfigImpl;
class HubClient;
class QueueReadHandler;
class RequestInternal;
class RequestSender;
class RetCodeTexts;
class Watchlist;

/// What a hub connection may ask of the session that owns it.
/// @thread hub, unless a line says otherwise; every operation locks for itself.
class HubSession {
public:
    virtual ~HubSession() = default;

    // --- standing of the session ---
    [[nodiscard]] virtual tivra::Session::States getState() const = 0;
    [[nodiscard]] virtual bool isCMconnection() const = 0;
    /// `stopRequested` or `shutdownInProgress` is set: long waits must end.
    [[nodiscard]] virtual bool isStopping() const = 0;
    [[nodiscard]] virtual bool isInitiallyEstablished() const = 0;
    /// The session has been established since the application's `start`.
    [[nodiscard]] virtual bool getisStarted() const = 0;
    [[nodiscard]] virtual int getQueueDepthThreshold() const = 0;
    /// The word for the application's binding language in the login request.
    [[nodiscard]] virtual std::string getLanguage() const = 0;
    /// The public session and the source of its return code texts, for the events of the user's identity.
    [[nodiscard]] virtual tivra::Session& getSession() = 0;
    [[nodiscard]] virtual const RetCodeTexts& getRetCodeTexts() const = 0;

    // --- first hubs ---
    /// Makes the client the session's `firstHubClient` when there is none yet.
    virtual void claimFirstHubClient(HubClient* client) = 0;
    /// True for `firstHubClient`, the one that loads the enumeration.
    [[nodiscard]] virtual bool isFirstHubClient(const HubClient* client) const = 0;
    /// True for the newest first hub, which runs the dictionary and port steps (`getfirstHubClientFrmLst`).
    [[nodiscard]] virtual bool isNewestFirstHub(const HubClient* client) const = 0;

    // --- connection managers ---
    [[nodiscard]] virtual ConnectionManagers& getConnectionManagers() = 0;
    /// The hubs come from a manager: there is no change to the backup list any more.
    virtual void disableFailover() = 0;
    /// Checks the configured hosts once they are known to be managers: 0, or -1 when they disagree.
    [[nodiscard]] virtual int updateCMPortPairLst() = 0;
    /// The host with the first text goes by the second from now on, unless another host has it.
    virtual void renameHost(const std::string& hostInfo, const std::string& newHostInfo) = 0;
    /// A port of a hub that is connected only when a cross-reference needs it.
    virtual void setXRefPort(uint16_t port) = 0;
    virtual void removeXRefPort(uint16_t port) = 0;
    /// The cross-reference hubs are being connected: one that fails now will be left out.
    [[nodiscard]] virtual bool areXrefHubsComing() const = 0;
    /// This first hub was only a door: it is dropped once the others are up.
    virtual void dropFirstHubLater(HubClient* client) = 0;

    // --- losses and readiness ---
    /// Puts the client into `m_hubDownLst`.
    virtual void noteHubDown(HubClient* client) = 0;
    /// Adds one to `m_downSinceLastCheck`; called for a client that was ready when its connection closed.
    virtual void countHubLoss(HubClient* client) = 0;
    /// Under `newQRHQueue_mutex`: calls `client->markReady()` and queues the client for a read handler when
    /// it has none.
    virtual void enterReadyHub(HubClient* client) = 0;

    // --- return codes, dictionary ---
    [[nodiscard]] virtual bool haveEnum() const = 0;
    virtual void setHaveEnum() = 0;
    [[nodiscard]] virtual const char* getRetCodeDesc(int code) const = 0;
    virtual void setRetCodeDesc(int code, const char* text, long length) = 0;
    [[nodiscard]] virtual DictionaryCache& getDictionaryCache() = 0;
    virtual void startDicReload() = 0;
    virtual void insertSessionEvent(tivra::SessionEvent::Types type, const std::string& dicVersion,
                                    int sourceID, int queueDepth) = 0;

    // --- sources ---
    /// A source that this hub itself carries: `srcClientMap` (first come stays) and `hubClientSrcMap`.
    virtual void addBoxSource(int src, HubClient* client) = 0;
    /// A source of the user. Enters it in `srcClientMap` with `entHub` (may be null) when it has no entry;
    /// when it had one, the user is entitled to it and a non-null client enters `entitledSrcClientMap`.
    /// Returns true when the source already had an entry.
    virtual bool addUserSource(int src, HubClient* entHub) = 0;
    /// `srcClientMap[src]` becomes this client.
    virtual void assignSource(int src, HubClient* client) = 0;
    struct PortCursor {
        int source = -1;   ///< the next source to ask about, -1 when none is left
        bool last = false; ///< no further source without a hub follows
    };
    /// The first source above `after` that no hub carries; news sources on the way go to `client`.
    [[nodiscard]] virtual PortCursor nextSourceWithoutHub(int after, HubClient* client) = 0;

    // --- other hubs of the same group ---
    enum class HubLookup { Found, NoHostConfig, NoClient };
    /// `srcClientMap[src]` becomes the client of the host with this host info string.
    [[nodiscard]] virtual HubLookup assignSourceToHost(int src, const std::string& hostInfo) = 0;
    /// Makes a client for a host that a hub has named, with the parameters of `like`, unless one exists.
    /// `operation` names the asker in the log. False when there is a client already.
    virtual bool createHubForHost(const std::string& hostInfo, HostConfigImpl& like,
                                  const char* operation) = 0;
    virtual void addSplitExchange(int src, HubClient* client) = 0;
    virtual void addSplitSymbol(int src, const std::string& pattern, HubClient* client) = 0;

    // --- requests ---
    [[nodiscard]] virtual Watchlist& getWatchlist() = 0;
    [[nodiscard]] virtual RequestSender& getRequestSender() = 0;
    /// A listed request is about to be written again after a reconnect: its answer is expected anew.
    virtual void noteReplay(const RequestInternal& request, HubClient* client) = 0;
    /// The request has been written to the hub: a lost connection takes its answer with it.
    virtual void noteWritten(int64_t tag, HubClient* client) = 0;
    /// The request can't be written, now or later: it ends without its hub's answer.
    virtual void loseRequest(int64_t tag, HubClient* client) = 0;
    /// The connection is gone: what has been written and not answered ends, unless a replay repeats it.
    virtual void endOutstanding(HubClient* client) = 0;
    /// Takes back a request that can't reach its hub, which isn't served any more: a request that expects
    /// this one answer is routed again, of a request to several hubs one answer fewer is expected. No mutex
    /// is held.
    virtual void takeBackRequest(std::unique_ptr<RequestInternal> request, HubClient* client) = 0;
};

} // namespace tivra_internal
