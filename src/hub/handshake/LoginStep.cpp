#include "hub/handshake/Steps.h"

#include <algorithm>
#include <utility>

#include <session/HostConfig.h>
#include <tp/Clock.h>
#include <tp/eprintf.h>
#include <tp/wipe.h>

#include "LibraryVersion.h"
#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "config/PasswordQuestion.h"
#include "config/UserInfoImpl.h"
#include "hub/RequestFrame.h"
#include "hub/handshake/HandshakeContext.h"

namespace tivra_internal {
namespace {

/// No account is to be locked by a short pause.
[[nodiscard]] RetryPauses pausesOfLogin(const HubClientOptions& options) {
    RetryPauses pauses;
    if (options.pauses) {
        pauses.first = std::max(pauses.first, options.pauses->first);
        pauses.longest = std::max(pauses.first, options.pauses->longest);
        pauses.mostAdded = options.pauses->mostAdded;
    }
    return pauses;
}

} // namespace

LoginStep::LoginStep(HandshakeContext& context, std::function<double()> chance)
    : m_context(context), m_loginPace(std::move(chance), pausesOfLogin(context.options)) {}

LoginStep::~LoginStep() {
    forget();
}

int LoginStep::ask() {
    if (m_context.port.getFd() < 0) {
        eprintf(EPF_CRIT, "HubClient::login - socket descriptor not valid");
        return -1;
    }
    lift();
    PasswordSource& passwords = m_context.user.passwords();
    if (const tivra::Password* const kept = passwords.kept())
        return send(*kept);
    m_context.state.m_waitTime = tp::Clock::monotonic();
    m_question = passwords.ask(HostTable::hostInfoOf(m_context.address.own(), m_context.address.port()),
                               [&port = m_context.port] { port.continueSoon(); });
    return 1;
}

void LoginStep::tick() {
    if (m_question == nullptr || !m_question->isAnswered())
        return;
    const std::shared_ptr<PasswordQuestion> question = std::exchange(m_question, nullptr);
    m_context.port.setInitHBTime();
    m_context.state.m_beginTime += tp::Clock::monotonic() - m_context.state.m_waitTime;
    if (const std::string fault = question->fault(); !fault.empty()) {
        eprintf(EPF_CRIT, "No login to %s: %s", m_context.address.shown().c_str(), fault.c_str());
        refuse(fault);
        return;
    }
    (void)send(question->take());
}

void LoginStep::forget() {
    m_logged_in = false;
    if (m_question != nullptr)
        m_question->drop();
    m_question.reset();
}

int LoginStep::send(const tivra::Password& password) {
    const bool indicator =
        m_context.options.host != nullptr &&
        m_context.options.host->getBoolean(tivra::HostConfig::CONFLATION_INDICATOR_BOOL, false);
    const std::string& user = m_context.user.getUserName();
    std::string text = "5026=" + std::to_string(LOGIN) + "|5022=LoginUser|5028=" + user + "|5029=";
    const std::string rest = std::string("|13265=") + (m_context.options.compression ? "1" : "0") +
                             "|5053=" + kVersion + "|5129=" + m_context.standing.getLanguage() +
                             "|5128=Linux" + (indicator ? "|5201=1" : "");
    const tp::WipedAtEnd wiped(text);
    // All at once, since a text that grows leaves itself behind.
    text.reserve(text.size() + password.text().size() + rest.size());
    text.append(password.text()).append(rest);
    if (text.size() > kMaxRequestText) {
        eprintf(EPF_CRIT, "Login request too long");
        refuse("Login request too long");
        return -1;
    }
    eprintf(m_context.port.isDialRepeated() ? EPF_DBUG : EPF_INFO,
            "HubClient::login - sending login to %s:%d for user %s; compression=%d; conflationIndicator=%s\n",
            m_context.address.dialled().c_str(), m_context.address.port(), loggable(user).c_str(),
            m_context.options.compression, indicator ? "true" : "false");

    if (m_context.port.sendLogin(text) != 1)
        return -1;
    m_context.port.setInitHBTime();
    return 1;
}

void LoginStep::take(const KVNAPI::Message& msg) {
    const MessageField status = m_context.field(msg, "ENUM.QUERY.STATUS");
    if (!status.isDefined()) {
        eprintf(EPF_CRIT, "HubMasterClient::process_login: ENUM.QUERY.STATUS not defined!");
        refuse("Internal Error: ENUM.QUERY.STATUS not defined!");
        return;
    }
    if (!status.isPresent()) {
        eprintf(EPF_CRIT, "HubMasterClient::process_login: Message without ENUM.QUERY.STATUS found!");
        refuse("Login response from HUB is missing ENUM.QUERY.STATUS");
        return;
    }
    const long code = status.integer();
    const int eventCode = static_cast<int>(std::clamp<long>(code, INT32_MIN, INT32_MAX));
    if (code == 0) {
        eprintf(EPF_INFO, "API Successful Login to Port %d", m_context.address.port());
        m_logged_in = true;
        m_loginPace.accepted();
        m_context.user.loginResult(&m_context.port.userHub(), tivra::UserEvent::AUTHORIZATION_SUCCESS, 0,
                                   m_context.standing.getSession(), m_context.dictionaries.getRetCodeTexts());
        m_context.hubs.hubHasChanged();
        return;
    }
    eprintf(EPF_CRIT, "API Unsuccessful Login to Port %d - return code = %ld: %s", m_context.address.port(),
            code, m_context.retCodeText(code));
    m_context.port.noteLoginStatus(eventCode);
    m_isBarred = m_context.options.stopAfterRefusal;
    refuse("AUTHORIZATION_FAILURE");
    m_context.user.loginResult(&m_context.port.userHub(), tivra::UserEvent::AUTHORIZATION_FAILURE, eventCode,
                               m_context.standing.getSession(), m_context.dictionaries.getRetCodeTexts());
    m_context.hubs.hubHasChanged();
}

void LoginStep::refuse(const std::string& reason) {
    const double wait = m_loginPace.refused(tp::Clock::monotonic());
    if (isBarred())
        eprintf(EPF_INFO,
                "HUB %s is dialled no more after the refused login, as STOP_AFTER_REFUSAL_BOOL says",
                m_context.address.shown().c_str());
    else if (m_context.standing.getisStarted())
        eprintf(EPF_INFO, "HUB %s is left alone for %.1f seconds after the refused login",
                m_context.address.shown().c_str(), wait);
    m_context.port.suspendClient(reason);
}

bool LoginStep::mayDial() const {
    return !isBarred() && m_loginPace.mayDial(tp::Clock::monotonic());
}

} // namespace tivra_internal
