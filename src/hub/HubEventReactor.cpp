#include "hub/HubEventReactor.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <set>
#include <vector>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "hub/RequestFrame.h"
#include "hub/SessionRequests.h"
#include "request/CommandClasses.h"
#include "request/HubWatchlist.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

namespace {

/// A hub that takes nothing stops the pump after so many microseconds.
constexpr suseconds_t kSendTimeoutMicroseconds = 100;
/// A hub that takes nothing, or isn't ready, is tried again after so many seconds.
constexpr double kNextTry = 0.05;
/// Requests enter the pace in pieces of this size, so that the time it takes to write the earlier ones isn't
/// lost.
constexpr unsigned kPiece = 50;
/// A pass of this length is worth a line, in seconds.
constexpr double kLongPass = 0.025;

/// The request will not be written here: a retry among them stands in the way of the next one no more.
void giveUp(RequestInternal& request) {
    if (request.isWLRetry)
        request.getHUB()->getWatchlist()->endRetry(request.getTag());
}

} // namespace

/// One pass of the pump: what has been done, and what is left to do once the mutex is free.
struct HubEventReactor::Pass {
    unsigned budget;
    double now; ///< monotonic
    int sent = 0;
    bool timeoutHit = false;
    std::vector<HubClient*> outOfStep;
    std::vector<std::unique_ptr<RequestInternal>> unreachable;
};

HubEventReactor::HubEventReactor(int reactorIndex, long maxQueueSize)
    : index(reactorIndex), requestQueueMaxSize(static_cast<std::size_t>(std::max(maxQueueSize, 0L))) {}

HubEventReactor::~HubEventReactor() = default;

bool HubEventReactor::pushRequest(std::unique_ptr<RequestInternal>& request, bool force) {
    HubClient* const client = request->getHUB();
    if (client == nullptr) {
        eprintf(EPF_WARN, "pushRequest: request with tag=%ld names no HUB; dropped",
                static_cast<long>(request->getTag()));
        request.reset();
        return true;
    }
    tp::MutexLock lock(m_request_mutex);
    RequestQueue& queue = requestQueue[client];
    if (!force && queue.size() >= requestQueueMaxSize) {
        eprintf(EPF_DBUG, "pushRequest() failed: requestQueue for HUB %s is full",
                client->getHubAddr().c_str());
        return false;
    }
    queue.push_back(std::move(request));
    const bool isFirst = queue.size() == 1;
    lock.unlock();
    // Whatever holds up the one before it, goes on with this one too.
    if (isFirst)
        ask(kWriteRequests);
    return true;
}

std::optional<double> HubEventReactor::writeRequests() {
    const double start = tp::Clock::monotonic();
    int sent = 0;
    unsigned left = 0;
    for (unsigned budget = m_pace.allowance(start); budget > 0 && left == 0;) {
        const unsigned piece = std::min(budget, kPiece);
        left = piece;
        const int written = write(left, start);
        m_pace.note(tp::Clock::monotonic(), static_cast<unsigned>(written));
        sent += written;
        budget -= piece;
    }
    const double end = tp::Clock::monotonic();
    if (end - start >= kNextTry)
        eprintf(EPF_DBUG, "HUB_Fifty_MilliSecond_Events::timerEvent(EXIT) elapsed time=%f; numReqsSent=%d",
                end - start, sent);
    if (!hasRequests())
        return std::nullopt;
    if (left > 0)
        return kNextTry;
    return m_pace.allowance(end) > 0 ? 0.0 : m_pace.secondsToNext(end);
}

bool HubEventReactor::hasRequests() {
    const tp::MutexLock lock(m_request_mutex);
    return !hubsInTurn().empty();
}

int HubEventReactor::handle_hub_requests(unsigned budget) {
    return write(budget, std::numeric_limits<double>::infinity());
}

/// `now` is later than the end of each block that is over.
int HubEventReactor::write(unsigned& budget, double now) {
    const double start = tp::Clock::monotonic();
    Pass pass{budget, now, 0, false, {}, {}};
    double locked = 0.0;
    double done = 0.0;
    {
        const tp::MutexLock lock(m_request_mutex);
        locked = tp::Clock::monotonic();
        std::deque<HubClient*> turns = hubsInTurn();
        while (pass.budget > 0 && !turns.empty()) {
            HubClient* const client = turns.front();
            turns.pop_front();
            m_lastServed = client;
            if (serveHub(*client, pass))
                turns.push_back(client);
        }
        done = tp::Clock::monotonic();
    }
    for (HubClient* const client : pass.outOfStep)
        client->closeIfOutOfStep();
    for (std::unique_ptr<RequestInternal>& request : pass.unreachable) {
        HubClient* const client = request->getHUB();
        client->getRequests().takeBackRequest(std::move(request), client);
    }
    if (done - start >= kLongPass)
        eprintf(EPF_DBUG,
                "HubEventReactor::handle_hub_requests(EXIT) elapsed time=%f; numReqsSent=%d; lock=%f; send "
                "loop=%f; timeoutHit=%d",
                done - start, pass.sent, locked - start, done - locked, pass.timeoutHit);
    budget = pass.budget;
    return pass.sent;
}

// The hubs that something waits for, beginning after the one that was served last.
std::deque<HubClient*> HubEventReactor::hubsInTurn() const {
    std::set<HubClient*> waiting;
    for (const auto& [client, queue] : requestQueue) {
        if (!queue.empty())
            waiting.insert(client);
    }
    for (const auto& [client, lastTag] : hubsSendingWLrequests)
        waiting.insert(client);
    std::deque<HubClient*> turns(waiting.begin(), waiting.end());
    const auto next =
        std::find_if(turns.begin(), turns.end(), [last = m_lastServed](const HubClient* client) {
            return std::greater<>()(client, last);
        });
    std::rotate(turns.begin(), next, turns.end());
    return turns;
}

// One turn of a hub; false when nothing more is to be done for it now.
bool HubEventReactor::serveHub(HubClient& client, Pass& pass) {
    if (const auto blocked = m_blockedUntil.find(&client); blocked != m_blockedUntil.end()) {
        if (pass.now < blocked->second)
            return false;
        m_blockedUntil.erase(blocked);
    }
    // A hub that has come back gets what stands in its watchlist before its queue, in the order of the tags.
    if (const auto replay = hubsSendingWLrequests.find(&client); replay != hubsSendingWLrequests.end()) {
        if (const auto request = client.getWatchlist()->getNextRequest(replay->second))
            return replayNext(client, *request, replay->second, pass);
        hubsSendingWLrequests.erase(replay);
        eprintf(EPF_INFO, "Finished resending watchlist requests for HUB %s", client.getHubAddr().c_str());
    }
    const auto queue = requestQueue.find(&client);
    return queue != requestQueue.end() && !queue->second.empty() && sendNext(client, queue->second, pass);
}

bool HubEventReactor::sendNext(HubClient& client, RequestQueue& queue, Pass& pass) {
    RequestInternal& head = *queue.front();
    if (client.life().leavesForGood()) {
        giveUp(head);
        pass.budget -= 1;
        pass.unreachable.push_back(std::move(queue.front()));
        queue.pop_front();
        return true;
    }
    // The order is kept: what is for a hub that is away or still coming up waits until it is ready. This
    // thread alone makes hubs ready, so another turn in this pass would find nothing else.
    if (!client.isReady())
        return false;
    if (head.isWLRetry && !client.getWatchlist()->isRetryWanted(head.getTag())) {
        eprintf(EPF_DBUG, "handle_hub_requests: %s: retry of tag=%ld is not wanted any more",
                client.getHubAddr().c_str(), static_cast<long>(head.getTag()));
        queue.pop_front();
        pass.budget -= 1;
        return true;
    }
    switch (sendTo(client, head, pass)) {
    case Sent::Yes:
        break;
    case Sent::TooLong:
        client.getRequests().loseRequest(head.getTag(), &client);
        queue.pop_front();
        pass.budget -= 1;
        return true;
    case Sent::No:
        return false;
    }
    if (head.isWLRetry)
        client.getWatchlist()->endRetry(head.getTag());
    else if (head.isCommandSet() && client.isWatchlistInUse())
        client.getWatchlist()->add(head.getTag(), head.copyWithAltIndex());
    const std::unique_ptr<RequestInternal> written = std::move(queue.front());
    queue.pop_front();
    finish(client, *written, pass);
    return true;
}

bool HubEventReactor::replayNext(HubClient& client, const RequestInternal& request, int64_t& lastTag,
                                 Pass& pass) {
    if (!client.isReady())
        return false;
    client.getRequests().noteReplay(request, &client);
    switch (sendTo(client, request, pass)) {
    case Sent::Yes:
        break;
    case Sent::TooLong:
        lastTag = request.getTag();
        pass.budget -= 1;
        return true;
    case Sent::No:
        return false;
    }
    lastTag = request.getTag();
    // A retry that still waits in the queue has been overtaken.
    client.getWatchlist()->noteReplay(request.getTag());
    finish(client, request, pass);
    return true;
}

HubEventReactor::Sent HubEventReactor::sendTo(HubClient& client, const RequestInternal& request, Pass& pass) {
    const std::string text = request.getKVNCommand();
    timeval timeout{0, kSendTimeoutMicroseconds};
    const int result = client.sendRequest(text.c_str(), &timeout);
    if (result < 0) {
        if (text.size() > kMaxRequestText)
            return Sent::TooLong;
        pass.timeoutHit = result == -2;
        m_blockedUntil[&client] = tp::Clock::monotonic() + kNextTry;
        pass.outOfStep.push_back(&client);
        return Sent::No;
    }
    client.getRequests().noteWritten(request.getTag(), &client);
    if (isAnsweredByData(request.getCommand()))
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
    const std::size_t count = client->getWatchlist()->size();
    if (count == 0)
        return;
    {
        const tp::MutexLock lock(m_request_mutex);
        hubsSendingWLrequests[client] = 0;
    }
    ask(kWriteRequests);
    eprintf(EPF_INFO, "Will resend %zu requests in watchlist for HUB %s ", count,
            client->getHubAddr().c_str());
}

void HubEventReactor::forgetClient(HubClient* client) {
    const tp::MutexLock lock(m_request_mutex);
    hubsSendingWLrequests.erase(client);
    m_blockedUntil.erase(client);
}

std::vector<std::unique_ptr<RequestInternal>> HubEventReactor::takeRequestsOf(HubClient* client) {
    std::vector<std::unique_ptr<RequestInternal>> taken;
    const tp::MutexLock lock(m_request_mutex);
    const auto found = requestQueue.find(client);
    if (found == requestQueue.end())
        return taken;
    for (std::unique_ptr<RequestInternal>& request : found->second) {
        giveUp(*request);
        taken.push_back(std::move(request));
    }
    requestQueue.erase(found);
    return taken;
}

void HubEventReactor::checkExit() {
    if (mustExit.load())
        tp::EventReactor::end();
}

} // namespace tivra_internal
