#include "hub/handshake/Handshake.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "kvnparse/Exchange.h"
#include "receive/QueueReadHandler.h"
#include "receive/SystemSource.h"

namespace tivra_internal {

namespace {

/// Compared over the symbol's own length, so that the start of such a word passes too.
bool isSystemSymbol(std::string_view symbol) {
    const auto startsWithSymbol = [symbol](std::string_view word) {
        return symbol.size() <= word.size() && word.substr(0, symbol.size()) == symbol;
    };
    return startsWithSymbol(QueueReadHandler::HUB_STATUS_SYM) ||
           startsWithSymbol(QueueReadHandler::QERROR_SYM) ||
           startsWithSymbol(QueueReadHandler::HEARTBEAT_SYM);
}

/// Answers of many rows or values, which fill tables.
bool isListTag(int tag) {
    return tag == GET_ENUM || tag == GET_DIC || tag == GET_BOX_ENTITLEMENTS || tag == GET_ENTITLEMENTS;
}

} // namespace

Handshake::Handshake(HandshakePort& port, HubSession& session, UserInfoImpl& user, const HubAddress& address,
                     MetaTokenMap& dictionary, const HubClientOptions& options,
                     std::function<double()> chance)
    : m_context(port, session, user, address, dictionary, options), m_login(m_context, std::move(chance)) {}

void Handshake::begin() {
    m_context.state.m_beginTime = tp::Clock::monotonic();
}

void Handshake::forget() {
    m_dictionary.forget();
    m_context.state = HandshakeState();
    m_entitlements.forget();
    m_login.forget();
}

void Handshake::tick() {
    m_login.tick();
    m_entitlements.tick();
}

void Handshake::hubReplaced() {
    if (m_context.known.m_kind == HubKind::Aggregating)
        m_context.known.m_kind = HubKind::Member;
}

void Handshake::take(const KVNAPI::Message& msg) {
    const MessageField tagField = m_context.field(msg, "QUERY.TAG");
    if (!tagField.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_message: QUERY.TAG not defined!");
        return;
    }
    if (!tagField.isPresent()) {
        noteUntagged(msg);
        return;
    }
    const int tag = static_cast<int>(std::clamp<int64_t>(tagField.integer(), INT32_MIN, INT32_MAX));
    if (tag >= LOGIN && tag <= GET_XREFPORT)
        m_context.port.setInitHBTime();
    if (!dispatch(tag, msg))
        return;
    if (!isLoggedIn()) {
        eprintf(EPF_DBUG, "API not logged in");
        return;
    }
    takeNextStep(tag);
}

// Data of the system source comes without a tag; anything else is worth a warning.
void Handshake::noteUntagged(const KVNAPI::Message& msg) {
    const bool isNormal =
        msg.exchange != nullptr && msg.exchange->id == kSystemSource && isSystemSymbol(msg.symbol.view());
    eprintf(isNormal ? EPF_DBUG : EPF_WARN,
            "HubClient::process_message: QUERY.TAG not present!; fd=%d (%s); msg: %s; m_haveHeartbeat=%d",
            m_context.port.getFd(), m_context.address.shown().c_str(), describe(msg).c_str(),
            m_context.state.m_haveHeartbeat);
}

// Hands a response to the step that has asked for it; true when the next step is to be chosen.
bool Handshake::dispatch(int tag, const KVNAPI::Message& msg) {
    if (isListTag(tag) && !m_context.isOutstanding(tag)) {
        eprintf(EPF_WARN,
                "HubClient::process_message: nobody has asked for a response with tag [%d]; ignored", tag);
        return false;
    }
    switch (tag) {
    case LOGIN:
        m_login.take(msg);
        return true;
    case GET_ENUM:
        m_returnCodes.take(msg);
        return m_context.dictionaries.haveEnum();
    case SET_CONFLATION_INTERVAL:
        m_conflation.takeInterval();
        return true;
    case SET_CONFLATION_TYPE:
        m_conflation.takeType(msg);
        return true;
    case GET_ADMIN:
        return m_administration.take(msg);
    case GET_DIC:
        m_dictionary.take(msg);
        return m_context.known.m_haveDIC;
    case AGG_CHECK:
        return m_group.take(msg);
    case GET_SPLIT:
        m_split.take(msg);
        return m_context.known.split_processed;
    case GET_BOX_ENTITLEMENTS:
        return m_boxEntitlements.take(msg);
    case GET_ENTITLEMENTS:
        return m_entitlements.take(msg);
    case GET_PORT:
        return m_ports.take(msg);
    case GET_STATUS:
        m_subscriptions.takeHeartbeat(msg);
        return true;
    case GET_HUBSTATUS:
        m_subscriptions.takeHubStatus(msg);
        return true;
    case DUMMY_REQ:
        return true;
    default:
        return takeAllPorts(tag, msg);
    }
}

// An answer that nobody has asked for would find every hub made already.
bool Handshake::takeAllPorts(int tag, const KVNAPI::Message& msg) {
    if (tag != GET_ALLPORTS || !m_context.isOutstanding(tag)) {
        eprintf(EPF_WARN, "Unknown Message - Tag [%d]", tag);
        return true;
    }
    m_context.noteAnswered(tag);
    m_allPorts.take(msg);
    // An answer that can't be read is not asked for again; the time-out ends the wait.
    return m_context.known.m_haveAllPorts;
}

void Handshake::takeNextStep(int tag) {
    run(nextHandshakeStep(situation(), m_context.state, m_context.known), tag);
}

HandshakeSituation Handshake::situation() const {
    const HubClient* const client = m_context.port.client();
    HandshakeSituation now;
    now.loadsEnum = m_context.hubs.isFirstHubClient(client);
    now.sessionHasEnum = m_context.dictionaries.haveEnum();
    now.isFirst = m_context.hubs.isNewestFirstHub(client);
    now.wasEstablished = m_context.standing.isInitiallyEstablished() || m_context.hubs.isLateFirstHub(client);
    now.wantsHeartbeat = m_context.options.readTimeout != 0;
    now.behindManager = m_context.managers.isCMconnection();
    now.hubVersion = hubVersion();
    return now;
}

void Handshake::run(HandshakeStep step, int tag) {
    switch (step) {
    case HandshakeStep::GetEnum:
        m_returnCodes.ask();
        break;
    case HandshakeStep::SetConflationInterval:
        m_conflation.askInterval();
        break;
    case HandshakeStep::AwaitAdmin:
        break;
    case HandshakeStep::GetAdmin:
        m_context.state.m_sentGetAdmin = m_administration.ask() == 1;
        break;
    case HandshakeStep::SetConflationType:
        m_conflation.askType(hubVersion());
        break;
    case HandshakeStep::GetDic:
        m_dictionary.ask();
        break;
    case HandshakeStep::AggCheck:
        m_group.ask();
        break;
    case HandshakeStep::GetAllPorts:
        m_allPorts.ask();
        break;
    case HandshakeStep::GetSplit:
        m_split.ask();
        break;
    case HandshakeStep::GetBoxEntitlements:
        m_boxEntitlements.ask();
        break;
    case HandshakeStep::GetEntitlements:
        m_entitlements.ask();
        break;
    case HandshakeStep::AwaitSiblings:
        m_entitlements.awaitSiblings();
        break;
    case HandshakeStep::GetPort:
        if (!m_ports.ask())
            sendDummyRequest();
        break;
    case HandshakeStep::SubscribeHeartbeat:
        eprintf(EPF_DBUG, "%s: m_haveHeartbeat=%d; m_readTimeout=%ld; response tag [%d]",
                m_context.address.shown().c_str(), m_context.state.m_haveHeartbeat,
                m_context.options.readTimeout, tag);
        subscribeHeartbeat();
        break;
    case HandshakeStep::SubscribeHubStatus:
        eprintf(EPF_DBUG, "%s: m_haveHubStatus=%d; response tag [%d]", m_context.address.shown().c_str(),
                m_context.state.m_haveHubStatus, tag);
        subscribeHubStatus();
        break;
    case HandshakeStep::BecomeReady:
        m_context.port.becomeReady();
        break;
    }
}

void Handshake::sendDummyRequest() {
    m_context.ask(DUMMY_REQ, "5026=%d|5022=Echo", DUMMY_REQ);
}

} // namespace tivra_internal
