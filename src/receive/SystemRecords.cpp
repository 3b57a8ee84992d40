// What a read handler does with the records of the system source.
#include "receive/QueueReadHandler.h"

#include <algorithm>
#include <string_view>

#include <tp/eprintf.h>

#include "dictionary/MetaTokenMap.h"
#include "receive/PairValue.h"
#include "receive/Queue.h"
#include "receive/ReadHandlerHub.h"
#include "receive/ReadHandlerSession.h"
#include "request/SourceNumbers.h"

namespace tivra_internal {
namespace {

/// A counter of the hub; it has no business being negative.
uint64_t countOf(const KVNAPI::TVPair& pair) noexcept {
    return static_cast<uint64_t>(std::max<int64_t>(integerOf(pair), 0));
}

} // namespace

bool QueueReadHandler::consumeSystemRecord(KVNAPI::Message& msg) {
    const std::string_view symbol = msg.symbol.view();
    if (symbol == HEARTBEAT_SYM)
        return consumeHeartbeat();
    if (symbol == HUB_STATUS_SYM)
        takeHubStatus(msg);
    else if (symbol == JIT_SYM)
        takeJit(msg);
    else if (symbol == USER_ENT_SYM)
        takeEntitlementAlert(msg);
    else
        return symbol == QERROR_SYM;
    return true;
}

bool QueueReadHandler::consumeHeartbeat() {
    setHBTime();
    return !m_session.isHBSubscribed();
}

void QueueReadHandler::takeHubStatus(const KVNAPI::Message& msg) {
    const KVNAPI::TVPair* const drops = msg.findPair(m_hubDropTok);
    const uint64_t dropped = drops != nullptr ? countOf(*drops) : 0;
    if (dropped != 0)
        takeHubDrops(dropped);
    m_dropsToldAt = readOrNow();
    const KVNAPI::TVPair* const idle = msg.findPair(m_idleCntTok);
    if (idle != nullptr)
        setHubIdleCount(countOf(*idle));
}

/// What the hub says of this connection stands behind the loss of the one before.
void QueueReadHandler::reportEarlierLosses() {
    if (m_isNewConnection)
        reportLosses(m_lossesBefore);
}

void QueueReadHandler::takeHubDrops(uint64_t sum) {
    m_responseQueue->updateHubDrops(sum);
    if (m_stream != nullptr && sum > m_hubDropsBefore) {
        reportEarlierLosses();
        m_stream->hubDropped(sum - m_hubDropsBefore, m_dropsToldAt);
    }
    m_hubDropsBefore = sum;
}

void QueueReadHandler::takeJit(const KVNAPI::Message& msg) {
    const KVNAPI::TVPair* const pair = msg.findPair(m_conflationTok);
    if (pair == nullptr) {
        eprintf(EPF_WARN, "%s: Improperly formed JIT message received", m_hubClient.getHubAddr().c_str());
        return;
    }
    const auto status = static_cast<int32_t>(integerOf(*pair));
    if (status == m_lastJitStatus) {
        eprintf(EPF_WARN, "%s: JIT message did not change state(%d); implies previous JIT message was lost",
                m_hubClient.getHubAddr().c_str(), status);
        return;
    }
    const bool wasConflating = m_lastJitStatus.exchange(status) != 0;
    const bool isConflating = status != 0;
    // From one non-zero value to another the hub stays one of those that conflate.
    if (isConflating != wasConflating) {
        m_session.addJitCount(isConflating ? 1 : -1);
        if (m_stream != nullptr) {
            reportEarlierLosses();
            m_stream->conflationChanged(isConflating, readOrNow());
        }
    }
    eprintf(EPF_INFO, "%s: JIT: this HUB has %s conflating", m_hubClient.getHubAddr().c_str(),
            isConflating ? "started" : "stopped");
}

void QueueReadHandler::takeEntitlementAlert(const KVNAPI::Message& msg) {
    const KVNAPI::Token* const sourceTok = MetaMap.lookupTokenViaName("ENUM.SRC.ID");
    const KVNAPI::Token* const deleteTok = MetaMap.lookupTokenViaName("RECORD.DEL");
    if (sourceTok == nullptr || deleteTok == nullptr) {
        eprintf(EPF_WARN, "QueueReadHandler::process_message: %s not defined!",
                sourceTok == nullptr ? "ENUM.SRC.ID" : "RECORD.DEL");
        return;
    }
    // The token's first occurrence became the header's source; the alert is about the second.
    const KVNAPI::TVPair* const pair = msg.findPair(sourceTok);
    const int64_t value = pair != nullptr ? integerOf(*pair) : 0;
    if (value < 1 || value > kLastSource)
        return;
    const int source = static_cast<int>(value);
    HubClient* const hub = m_hubClient.client();
    if (msg.findPair(deleteTok) != nullptr)
        m_session.deleteEntitlement(source, hub);
    else if (source < kFirstNewsSource)
        m_session.beginAddNewEntitlement(source);
    else if (m_session.isFirstHub(hub))
        m_session.addNewEntitlement(source, hub);
}

} // namespace tivra_internal
