#include "hub/HubEventReactor.h"

#include <algorithm>
#include <vector>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "hub/HubSession.h"
#include "request/CommandClasses.h"
#include "request/HubWatchlist.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

namespace {

/// A hub that takes nothing stops the pump after so many microseconds.
constexpr suseconds_t kSendTimeoutMicroseconds = 100;
/// A pass of this length is worth a line, in seconds.
constexpr double kLongPass = 0.025;

/// A retry that can't reach its hub goes to whichever hub serves it by then, as a request like any other.
void becomeOrdinary(RequestInternal& request) {
    if (request.isWLRetry)
        request.getHUB()->getWatchlist()->endRetry(request.getTag());
    request.isWLRetry = false;
}

} // namespace

/// One pass of the pump: what has been done, and what is left to do once the mutex is free.
struct HubEventReactor::Pass {
    unsigned budget;
    int sent = 0;
    bool timeoutHit = false;
    std::vector<HubClient*> outOfStep;
    std::vector<std::unique_ptr<RequestInternal>> unreachable;
};

HubEventReactor::HubEventReactor(int reactorIndex, long maxQueueSize)
    : index(reactorIndex), requestQueueMaxSize(static_cast<size_t>(std::max(maxQueueSize, 0L))) {}

HubEventReactor::~HubEventReactor() = default;

bool HubEventReactor::pushRequest(std::unique_ptr<RequestInternal>& request, bool force) {
    const tp::MutexLock lock(m_request_mutex);
    if (!force && requestQueue.size() >= requestQueueMaxSize) {
        eprintf(EPF_DBUG, "pushRequest() failed: requestQueue for HUB %s is full",
                request->getHUB() != nullptr ? request->getHUB()->getHubAddr().c_str() : "");
        return false;
    }
    requestQueue.push_back(std::move(request));
    return true;
}

int HubEventReactor::handle_hub_requests(unsigned budget) {
    const double start = tp::Clock::monotonic();
    Pass pass{budget, 0, false, {}, {}};
    double locked = start;
    double done = start;
    {
        const tp::MutexLock lock(m_request_mutex);
        locked = tp::Clock::monotonic();
        while (pass.budget > 0 && sendNext(pass)) {
        }
        done = tp::Clock::monotonic();
    }
    for (HubClient* const client : pass.outOfStep)
        client->closeIfOutOfStep();
    for (std::unique_ptr<RequestInternal>& request : pass.unreachable) {
        HubClient* const client = request->getHUB();
        client->getSession().takeBackRequest(std::move(request), client);
    }
    if (done - start >= kLongPass)
        eprintf(EPF_DBUG,
                "HubEventReactor::handle_hub_requests(EXIT) elapsed time=%f; numReqsSent=%d; lock=%f; send "
                "loop=%f; timeoutHit=%d",
                done - start, pass.sent, locked - start, done - locked, pass.timeoutHit);
    return pass.sent;
}

// One turn of the pump; false when nothing more is to be done now.
bool HubEventReactor::sendNext(Pass& pass) {
    if (!hubsSendingWLrequests.empty())
        return replayNext(pass);
    if (requestQueue.empty())
        return false;

    RequestInternal& head = *requestQueue.front();
    HubClient* const client = head.getHUB();
    if (client == nullptr) {
        eprintf(EPF_WARN, "handle_hub_requests: request with tag=%ld names no HUB; dropped",
                static_cast<long>(head.getTag()));
        requestQueue.pop_front();
        return true;
    }
    if (client->isSuspended() || client->m_xrefRemove || client->m_retired) {
        // Nobody brings this hub back at present: what waits behind the request must not wait with it.
        becomeOrdinary(head);
        pass.budget -= 1;
        pass.unreachable.push_back(std::move(requestQueue.front()));
        requestQueue.pop_front();
        return true;
    }
    // The order is kept: a request for a hub that is still coming up holds up the others behind it. This
    // thread alone makes hubs ready, so the rest of the budget would find nothing else.
    if (!client->isReady())
        return false;
    if (head.isWLRetry && !client->getWatchlist()->isRetryWanted(head.getTag())) {
        eprintf(EPF_DBUG, "handle_hub_requests: %s: retry of tag=%ld is not wanted any more",
                client->getHubAddr().c_str(), static_cast<long>(head.getTag()));
        requestQueue.pop_front();
        pass.budget -= 1;
        return true;
    }
    switch (sendTo(*client, head, pass)) {
    case Sent::Yes:
        break;
    case Sent::TooLong:
        requestQueue.pop_front();
        pass.budget -= 1;
        return true;
    case Sent::No:
        return false;
    }
    if (head.isWLRetry)
        client->getWatchlist()->endRetry(head.getTag());
    else if (head.isCommandSet() && client->isWatchlistInUse())
        client->getWatchlist()->add(head.getTag(), head.copyWithAltIndex());
    const std::unique_ptr<RequestInternal> written = std::move(requestQueue.front());
    requestQueue.pop_front();
    finish(*client, *written, pass);
    return true;
}

// A hub that has come back is served before the queue, in the order of the tags.
bool HubEventReactor::replayNext(Pass& pass) {
    const auto entry = hubsSendingWLrequests.begin();
    HubClient* const client = entry->first;
    const std::unique_ptr<RequestInternal> request = client->getWatchlist()->getNextRequest(entry->second);
    if (request == nullptr) {
        hubsSendingWLrequests.erase(entry);
        eprintf(EPF_INFO, "Finished resending watchlist requests for HUB %s", client->getHubAddr().c_str());
        return true;
    }
    if (!client->isReady())
        return false;
    client->getSession().noteReplay(*request, client);
    switch (sendTo(*client, *request, pass)) {
    case Sent::Yes:
        break;
    case Sent::TooLong:
        entry->second = request->getTag();
        pass.budget -= 1;
        return true;
    case Sent::No:
        return false;
    }
    entry->second = request->getTag();
    // A retry that still waits in the queue has been overtaken.
    client->getWatchlist()->endRetry(request->getTag());
    finish(*client, *request, pass);
    return true;
}

HubEventReactor::Sent HubEventReactor::sendTo(HubClient& client, const RequestInternal& request, Pass& pass) {
    const std::string text = request.getKVNCommand();
    timeval timeout{0, kSendTimeoutMicroseconds};
    const int result = client.sendRequest(text.c_str(), &timeout);
    if (result < 0) {
        if (text.size() > HubClient::kMaxRequestText)
            return Sent::TooLong;
        pass.timeoutHit = result == -2;
        pass.outOfStep.push_back(&client);
        return Sent::No;
    }
    if (isQueryCommand(request.getCommand()))
        client.incrQueryCount();
    eprintf(EPF_DBUG, "handle_hub_requests: %s: sent request with command=%d; tag=%ld",
            client.getHubAddr().c_str(), static_cast<int>(request.getCommand()),
            static_cast<long>(request.getTag()));
    return Sent::Yes;
}

void HubEventReactor::finish(HubClient& client, const RequestInternal& request, Pass& pass) {
    if (request.resubHB)
        client.getStatusHeartbeat();
    if (request.resubHubStatus)
        client.getHubStatus();
    if (client.isOutOfStep())
        pass.outOfStep.push_back(&client);
    pass.sent += 1;
    pass.budget -= 1;
}

void HubEventReactor::sendWLRequests(HubClient* client) {
    const size_t count = client->getWatchlist()->size();
    if (count == 0)
        return;
    {
        const tp::MutexLock lock(m_request_mutex);
        hubsSendingWLrequests[client] = 0;
    }
    eprintf(EPF_INFO, "Will resend %zu requests in watchlist for HUB %s ", count,
            client->getHubAddr().c_str());
}

void HubEventReactor::forgetClient(HubClient* client) {
    const tp::MutexLock lock(m_request_mutex);
    hubsSendingWLrequests.erase(client);
}

std::vector<std::unique_ptr<RequestInternal>> HubEventReactor::takeRequestsOf(const HubClient* client) {
    std::vector<std::unique_ptr<RequestInternal>> taken;
    const tp::MutexLock lock(m_request_mutex);
    std::deque<std::unique_ptr<RequestInternal>> kept;
    for (std::unique_ptr<RequestInternal>& request : requestQueue) {
        if (request->getHUB() != client) {
            kept.push_back(std::move(request));
            continue;
        }
        becomeOrdinary(*request);
        taken.push_back(std::move(request));
    }
    requestQueue.swap(kept);
    return taken;
}

void HubEventReactor::checkExit() {
    if (mustExit.load())
        tp::EventReactor::end();
}

long HubEventReactor::takeConnectWait(double tick, long limit) {
    if (tick == m_lastConnectWait)
        return 0;
    m_lastConnectWait = tick;
    return limit;
}

} // namespace tivra_internal
