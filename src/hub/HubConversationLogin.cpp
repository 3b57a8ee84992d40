// The login and the two subscriptions that every connection holds.
#include "hub/HubClient.h"

#include <algorithm>
#include <vector>

#include <session/HostConfig.h>
#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "LibraryVersion.h"
#include "config/HostConfigImpl.h"
#include "config/UserInfoImpl.h"
#include "hub/HubSession.h"
#include "hub/MessageReading.h"
#include "hub/RequestFrame.h"
#include "receive/QueueReadHandler.h"

namespace tivra_internal {

int HubClient::login() {
    if (getFd() < 0) {
        eprintf(EPF_CRIT, "HubClient::login - socket descriptor not valid");
        return -1;
    }
    const bool indicator = m_options.host != nullptr &&
                           m_options.host->getBoolean(tivra::HostConfig::CONFLATION_INDICATOR_BOOL, false);
    const std::string& user = m_primaryUser.getUserName();
    const std::string text = "5026=" + std::to_string(LOGIN) + "|5022=LoginUser|5028=" + user +
                             "|5029=" + m_primaryUser.getPassword() +
                             "|13265=" + (m_options.compression ? "1" : "0") + "|5053=" + kVersion +
                             "|5129=" + m_session.getLanguage() + "|5128=Linux" +
                             (indicator ? "|5201=1" : "");
    if (text.size() > kMaxRequestText) {
        eprintf(EPF_CRIT, "Login request too long");
        loginRefused("Login request too long");
        return -1;
    }
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_INFO,
            "HubClient::login - sending login to %s:%d for user %s; compression=%d; conflationIndicator=%s\n",
            getDialledAddr().c_str(), getHubPort(), loggable(user).c_str(), m_options.compression,
            indicator ? "true" : "false");

    std::vector<char> frame(text.size() + kFrameOverhead);
    const int size = buildKvnMsg(text.data(), text.size(), frame.data());
    const int written = m_socket.writen(getFd(), frame.data(), size, nullptr);
    if (written != size) {
        eprintf(EPF_CRIT, "HubMaster::login - writen returned %d expecting %d", written, size);
        closeIfOutOfStep();
        return -1;
    }
    setInitHBTime();
    return 1;
}

void HubClient::process_login(KVNAPI::Message& msg) {
    const MessageField status(m_dicMetaMap, msg, "ENUM.QUERY.STATUS");
    if (!status.isDefined()) {
        eprintf(EPF_CRIT, "HubMasterClient::process_login: ENUM.QUERY.STATUS not defined!");
        loginRefused("Internal Error: ENUM.QUERY.STATUS not defined!");
        return;
    }
    if (!status.isPresent()) {
        eprintf(EPF_CRIT, "HubMasterClient::process_login: Message without ENUM.QUERY.STATUS found!");
        loginRefused("Login response from HUB is missing ENUM.QUERY.STATUS");
        return;
    }
    const long code = status.integer();
    const int eventCode = static_cast<int>(std::clamp<long>(code, INT32_MIN, INT32_MAX));
    if (code == 0) {
        eprintf(EPF_INFO, "API Successful Login to Port %d", getHubPort());
        m_logged_in = true;
        m_loginPace.accepted();
        m_primaryUser.loginResult(this, tivra::UserEvent::AUTHORIZATION_SUCCESS, 0, m_session.getSession(),
                                  m_session.getRetCodeTexts());
        return;
    }
    eprintf(EPF_CRIT, "API Unsuccessful Login to Port %d - return code = %ld: %s", getHubPort(), code,
            retCodeText(code));
    loginRefused("AUTHORIZATION_FAILURE");
    m_primaryUser.loginResult(this, tivra::UserEvent::AUTHORIZATION_FAILURE, eventCode,
                              m_session.getSession(), m_session.getRetCodeTexts());
}

void HubClient::loginRefused(const std::string& reason) {
    const double wait = m_loginPace.refused(tp::Clock::monotonic());
    if (m_session.getisStarted())
        eprintf(EPF_INFO, "HUB %s is left alone for %.1f seconds after the refused login",
                getHubAddr().c_str(), wait);
    suspendClient(reason);
}

bool HubClient::mayDial() const {
    return m_loginPace.mayDial(tp::Clock::monotonic());
}

int HubClient::getStatusHeartbeat() {
    if (m_options.readTimeout == 0)
        return 1;
    return sendStartUpRequest(GET_STATUS, "5026=%d|5022=Subscribe|4=922|5=%s", GET_STATUS,
                              QueueReadHandler::HEARTBEAT_SYM);
}

int HubClient::getHubStatus() {
    return sendStartUpRequest(GET_HUBSTATUS, "5026=%d|5022=Subscribe|4=922|5=%s", GET_HUBSTATUS,
                              QueueReadHandler::HUB_STATUS_SYM);
}

void HubClient::process_status(KVNAPI::Message& msg) {
    const MessageField status(m_dicMetaMap, msg, "ENUM.QUERY.STATUS");
    const std::string address = getDialledAddr();
    if (!status.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_status: ENUM.QUERY.STATUS not defined!");
    } else if (!status.isPresent()) {
        eprintf(EPF_WARN, "HubClient::process_status: No status received from Subscribe to heartbeats");
    } else if (const long code = status.integer(); code != 0) {
        eprintf(EPF_WARN, "Subscribe to heartbeats failed on %s:%d with return code = %ld: %s",
                address.c_str(), getHubPort(), code, retCodeText(code));
    } else {
        eprintf(EPF_INFO, "API Successfully processed subscribed for heartbeats for %s:%d", address.c_str(),
                getHubPort());
        m_step.m_haveHeartbeat = true;
        m_heartbeat.restartCheck();
        return;
    }
    countRefusal(m_step.m_heartbeatRefusals);
}

void HubClient::process_hubStatus(KVNAPI::Message& msg) {
    const MessageField status(m_dicMetaMap, msg, "ENUM.QUERY.STATUS");
    const std::string address = getDialledAddr();
    if (!status.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_hubStatus: ENUM.QUERY.STATUS not defined!");
    } else if (!status.isPresent()) {
        eprintf(EPF_WARN, "HubClient::process_hubStatus: No status received from Subscribe to %s",
                QueueReadHandler::HUB_STATUS_SYM);
    } else if (const long code = status.integer(); code != 0) {
        eprintf(EPF_WARN, "Subscribe to %s failed on %s:%d with return code = %ld: %s",
                QueueReadHandler::HUB_STATUS_SYM, address.c_str(), getHubPort(), code, retCodeText(code));
    } else {
        eprintf(EPF_DBUG, "API Successfully subscribed to %s for %s:%d", QueueReadHandler::HUB_STATUS_SYM,
                address.c_str(), getHubPort());
        m_step.m_haveHubStatus = true;
        return;
    }
    countRefusal(m_step.m_hubStatusRefusals);
}

// A hub that refuses for good would be asked for ever; the close makes it a failed dial, which is limited.
void HubClient::countRefusal(long& refusals) {
    if (++refusals > m_options.connectionRetryLimit)
        closeConnection();
}

} // namespace tivra_internal
