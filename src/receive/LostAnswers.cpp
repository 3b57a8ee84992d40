// How a read handler ends requests whose answer was lost with the connection.
#include "receive/QueueReadHandler.h"

#include <string>

#include <tp/Clock.h>

#include "receive/LibraryTags.h"
#include "receive/MessageEventImpl.h"
#include "receive/Queue.h"
#include "receive/ReadHandlerHub.h"
#include "receive/ReadHandlerSession.h"

namespace tivra_internal {
namespace {

/// How long one tick may go on, in seconds: there may be very many, and the thread serves timers and other
/// hubs too.
constexpr double kTurn = 0.01;

} // namespace

// Delivery may run on the hub's thread at the same time, with the same event.
bool QueueReadHandler::endLostRequests() {
    bool isMoreDue = false;
    m_responseQueue->runAsConsumer([this, &isMoreDue] { isMoreDue = endLostRequestsOfTurn(); });
    return isMoreDue;
}

bool QueueReadHandler::endLostRequestsOfTurn() {
    HubClient* const hub = m_hubClient.isDummy() ? nullptr : m_hubClient.client();
    const double start = tp::Clock::monotonic();
    LostRequest lost;
    if (m_stream != nullptr && m_responseQueue->isEmpty())
        reportLosses(m_losses.load(std::memory_order_relaxed));
    do {
        if (!m_session.takeLostRequest(hub, m_responseQueue->isEmpty(), lost))
            return false;
        endLostRequest(lost, hub);
    } while (tp::Clock::monotonic() - start < kTurn);
    return true;
}

/// As if the hub had answered with this status; it has not, so no query is counted as answered.
void QueueReadHandler::endLostRequest(const LostRequest& lost, HubClient* hub) {
    if (m_tagTok == nullptr || m_statusTok == nullptr)
        return;
    KVNAPI::Message msg;
    msg.addPair()->setI(m_tagTok, lost.tag);
    msg.addPair()->setI(m_statusTok, lost.status);
    msg.isTagPresent = 1;
    msg.isRetCodePresent = 1;
    const std::string body = std::to_string(m_tagTok->kvnid) + '=' + std::to_string(lost.tag) + '|' +
                             std::to_string(m_statusTok->kvnid) + '=' + std::to_string(lost.status);
    m_event->setBody(body);
    m_altids.clear();
    Incoming in{msg, lost.status, lost.tag, true, true, lost.command};
    noteRefusal(in);
    if (m_session.suppressResponse(lost.tag, msg, m_statusTok, msg.findPair(m_statusTok), &MetaMap, hub))
        return;
    readStatus(in);
    (void)deliver(in);
}

} // namespace tivra_internal
