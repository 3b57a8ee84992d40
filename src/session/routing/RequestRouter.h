#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "request/RequestSender.h"
#include "session/routing/OwnSubscriptions.h"
#include "session/routing/RequestTaker.h"

namespace tivra_internal {

class HubClient;
class LostRequests;
class RequestInternal;
class RequestQueue;
class ResponseBook;
class RouterSession;
class SourceRoutes;
class SplitTables;
class Watchlist;

/// Finds the hub or hubs that get a request, and notes whose answer is expected. @thread master, unless a
/// line says otherwise
class RequestRouter final : public RequestTaker, public RequestSender {
public:
    /// What it decides by and writes to; all borrowed.
    struct Tables {
        const SourceRoutes& routes;
        const SplitTables& split;
        Watchlist& watchlist;
        ResponseBook& responses;
        LostRequests& lost;
        RequestQueue& queue;
    };

    RequestRouter(RouterSession& session, const Tables& tables) : m_session(session), m_tables(tables) {}

    [[nodiscard]] bool routeRequestToHub(std::unique_ptr<RequestInternal>& request) override;
    [[nodiscard]] bool sendCopy(std::unique_ptr<RequestInternal>& request, HubClient* hub) override;
    /// What was for that hub alone is routed again. The others of several have copies of their own, so a copy
    /// goes nowhere else: the hub counts as having taken and answered it. @thread any
    void takeBackRequest(std::unique_ptr<RequestInternal> request, HubClient* client) override;
    /// Queues the request for one hub. False always means that the caller still owns it. @thread any
    [[nodiscard]] bool sendToHub(std::unique_ptr<RequestInternal>& request, HubClient* hub, bool force,
                                 int src) override;

    [[nodiscard]] OwnSubscriptions& ownSubscriptions() { return m_own; }
    [[nodiscard]] const OwnSubscriptions& ownSubscriptions() const { return m_own; }

private:
    void storeConflationInterval(const RequestInternal& request);
    void enterAddedAlternateIndexes(RequestInternal& request);
    void applySymbolRules(RequestInternal& request);
    [[nodiscard]] bool sendToTarget(std::unique_ptr<RequestInternal>& request);
    [[nodiscard]] bool sendToSplitSymbol(std::unique_ptr<RequestInternal>& request);
    [[nodiscard]] HubClient* hubForSplitSymbol(const RequestInternal& request);
    [[nodiscard]] bool sendToExchange(std::unique_ptr<RequestInternal>& request, int exch);
    [[nodiscard]] bool sendToFirstHub(std::unique_ptr<RequestInternal>& request);
    [[nodiscard]] bool sendToDefaultHub(std::unique_ptr<RequestInternal>& request);
    [[nodiscard]] bool sendToEach(std::unique_ptr<RequestInternal>& request, int exch);
    [[nodiscard]] bool sendCopies(std::unique_ptr<RequestInternal>& request,
                                  const std::vector<HubClient*>& hubs, bool isNews);
    void lowerExpectedResponses(int64_t tag, HubClient* hub);
    void endIfNobodyAnswers(int64_t tag, HubClient* hub);
    [[nodiscard]] bool isServed(HubClient* hub) const;

    RouterSession& m_session;
    const Tables m_tables;
    OwnSubscriptions m_own;
};

} // namespace tivra_internal
