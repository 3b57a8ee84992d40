// The conversation that brings a connection from the login to ready: one request at a time, each answer
// drives the next.
#include "hub/HubClient.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "hub/ConversationSteps.h"
#include "hub/HubEventReactor.h"
#include "hub/HubSession.h"
#include "hub/MessageReading.h"
#include "kvnparse/Exchange.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"
#include "receive/SystemSource.h"

namespace tivra_internal {

namespace {

constexpr size_t kMaxStartUpRequest = 256;

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

void HubClient::process_message(KVNAPI::Message& msg) {
    const MessageField tagField(m_dicMetaMap, msg, "QUERY.TAG");
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
        setInitHBTime();
    if (!dispatch(tag, msg))
        return;
    if (!isLoggedIn()) {
        eprintf(EPF_DBUG, "API not logged in");
        return;
    }
    runDecisionChain(tag);
}

// Data of the system source comes without a tag; anything else is worth a warning.
void HubClient::noteUntagged(const KVNAPI::Message& msg) {
    const bool isNormal =
        msg.exchange != nullptr && msg.exchange->id == SYSTEM_SOURCE && isSystemSymbol(msg.symbol.view());
    eprintf(isNormal ? EPF_DBUG : EPF_WARN,
            "HubClient::process_message: QUERY.TAG not present!; fd=%d (%s); msg: %s; m_haveHeartbeat=%d",
            getFd(), getHubAddr().c_str(), describe(msg).c_str(), m_step.m_haveHeartbeat);
}

// Hands a response to the handler of its tag; true when the decision chain is to run.
bool HubClient::dispatch(int tag, KVNAPI::Message& msg) {
    if (isListTag(tag) && !isOutstanding(tag)) {
        eprintf(EPF_WARN,
                "HubClient::process_message: nobody has asked for a response with tag [%d]; ignored", tag);
        return false;
    }
    switch (tag) {
    case LOGIN:
        process_login(msg);
        return true;
    case GET_ENUM:
        process_enum(msg);
        return m_session.haveEnum();
    case SET_CONFLATION_INTERVAL:
        process_conflation_interval();
        return true;
    case SET_CONFLATION_TYPE:
        process_conflation_type(msg);
        return true;
    case GET_ADMIN:
        return process_admin(msg);
    case GET_DIC:
        process_dic(msg);
        return m_known.m_haveDIC;
    case AGG_CHECK:
        return checkAggAnswer(msg);
    case GET_SPLIT:
        process_split(msg);
        return m_known.split_processed;
    case GET_BOX_ENTITLEMENTS:
        return checkBoxEntitlements(msg);
    case GET_ENTITLEMENTS:
        return checkEntitlements(msg);
    case GET_PORT:
        return checkPorts(msg);
    case GET_STATUS:
        process_status(msg);
        return true;
    case GET_HUBSTATUS:
        process_hubStatus(msg);
        return true;
    case DUMMY_REQ:
        return true;
    case GET_ALLPORTS:
        // An answer that nobody has asked for would find every hub made already.
        if (isOutstanding(GET_ALLPORTS)) {
            noteAnswered(GET_ALLPORTS);
            process_allPorts(msg);
            // An answer that can't be read is not asked for again; the time-out ends the wait.
            return m_known.m_haveAllPorts;
        }
        [[fallthrough]];
    default:
        eprintf(EPF_WARN, "Unknown Message - Tag [%d]", tag);
        return true;
    }
}

bool HubClient::checkAggAnswer(KVNAPI::Message& msg) {
    process_aggCheck(msg);
    if (m_known.m_aggChecked || isSuspended())
        return m_known.m_aggChecked;
    static constexpr const char* kReason = "Unable to successfully process AGG check!";
    eprintf(EPF_CRIT, "%s", kReason);
    suspendClient(kReason);
    return false;
}

bool HubClient::checkBoxEntitlements(KVNAPI::Message& msg) {
    process_box_entitlements(msg);
    if (m_step.m_haveBoxEntitlements)
        return true;
    eprintf(EPF_CRIT, "Unable to successfully process box entitlements for HUB %s!", getHubAddr().c_str());
    suspendClient("Unable to successfully process box entitlements!");
    return false;
}

bool HubClient::checkEntitlements(KVNAPI::Message& msg) {
    process_entitlements(msg);
    if (m_step.m_haveEntitlements || !m_session.isNewestFirstHub(this))
        return true;
    static constexpr const char* kReason = "Unable to successfully process entitlements!";
    eprintf(EPF_CRIT, "%s", kReason);
    suspendClient(kReason);
    return false;
}

// One source after the other; the answer to each request asks for the next.
bool HubClient::checkPorts(KVNAPI::Message& msg) {
    process_port(msg);
    if (!m_session.isNewestFirstHub(this) || m_step.m_havePorts || m_step.m_src_in_progress < 0)
        return true;
    return !getPort();
}

void HubClient::runDecisionChain(int tag) {
    ConversationContext context;
    context.loadsEnum = m_session.isFirstHubClient(this);
    context.sessionHasEnum = m_session.haveEnum();
    context.isFirst = m_session.isNewestFirstHub(this);
    context.wasEstablished = m_session.isInitiallyEstablished();
    context.wantsHeartbeat = m_options.readTimeout != 0;
    context.behindManager = m_session.isCMconnection();
    context.hubVersion = {getHubMajorVersion(), getHubMinorVersion()};
    takeStep(nextConversationStep(context, m_step, m_known), tag);
}

void HubClient::takeStep(ConversationStep step, int tag) {
    switch (step) {
    case ConversationStep::GetEnum:
        getEnum();
        break;
    case ConversationStep::SetConflationInterval:
        setConflationInterval();
        break;
    case ConversationStep::AwaitAdmin:
        break;
    case ConversationStep::GetAdmin:
        m_step.m_sentGetAdmin = getAdmin() == 1;
        break;
    case ConversationStep::SetConflationType:
        setConflationType();
        break;
    case ConversationStep::GetDic:
        getDic();
        break;
    case ConversationStep::AggCheck:
        aggCheck();
        break;
    case ConversationStep::GetAllPorts:
        getAllPorts();
        break;
    case ConversationStep::GetSplit:
        getSplit();
        break;
    case ConversationStep::GetBoxEntitlements:
        getBoxEntitlements();
        break;
    case ConversationStep::GetEntitlements:
        getEntitlements();
        break;
    case ConversationStep::AwaitSiblings:
        eprintf(EPF_DBUG, "Waiting get box perms from all other HUBs");
        if (!waitForAllHubsToGetBoxPerms.exchange(true))
            m_step.m_waitTime = tp::Clock::monotonic();
        break;
    case ConversationStep::GetPort:
        if (!getPort())
            sendDummyRequest();
        break;
    case ConversationStep::SubscribeHeartbeat:
        eprintf(EPF_DBUG, "%s: m_haveHeartbeat=%d; m_readTimeout=%ld; response tag [%d]",
                getHubAddr().c_str(), m_step.m_haveHeartbeat, m_options.readTimeout, tag);
        getStatusHeartbeat();
        break;
    case ConversationStep::SubscribeHubStatus:
        eprintf(EPF_DBUG, "%s: m_haveHubStatus=%d; response tag [%d]", getHubAddr().c_str(),
                m_step.m_haveHubStatus, tag);
        getHubStatus();
        break;
    case ConversationStep::BecomeReady:
        becomeReady();
        break;
    }
}

void HubClient::becomeReady() {
    const double sinceReset = tp::Clock::monotonic() - m_last_reset_time;
    m_socket.restartRetries();
    m_lookup.noteReady();
    // The queue may wait for a callback that runs, so no mutex is held here.
    m_responseQueue->reset();
    m_session.enterReadyHub(this);
    if (HubEventReactor* const reactor = getReactor(); m_options.watchlistInUse && reactor != nullptr)
        reactor->sendWLRequests(this);
    const std::string address = getDialledAddr();
    if (m_last_reset_time != 0.0)
        eprintf(EPF_DBUG, "HubClient for %s:%d completed initialization %f seconds after last reset",
                address.c_str(), getHubPort(), sinceReset);
    eprintf(EPF_INFO, "Completed initialization of HUB %s:%d on fd=%d", address.c_str(), getHubPort(),
            getFd());
    m_socket.noteReady();
}

int HubClient::sendStartUpRequest(int tag, const char* format, ...) {
    std::array<char, kMaxStartUpRequest> text;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    const int result = sendRequest(text.data(), nullptr);
    if (result == 1)
        m_step.m_outstandingTags |= 1U << tag;
    return result;
}

int HubClient::sendDummyRequest() {
    return sendStartUpRequest(DUMMY_REQ, "5026=%d|5022=Echo", DUMMY_REQ);
}

} // namespace tivra_internal
