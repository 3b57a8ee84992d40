#include "session/SessionImpl.h"

#include <cstddef>
#include <string_view>

#include <tp/eprintf.h>

#include "config/ConnectionConfigImpl.h"
#include "config/SessionConfigImpl.h"
#include "config/UserInfoImpl.h"
#include "hub/HubClient.h"
#include "receive/LibraryTags.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

constexpr const char* kNoPrimary = "Primary connection empty or Primary and backup have same connection";
constexpr const char* kNotValid = "Multiple Sessions are not supported; ignoring start request";
constexpr const char* kUserOfParent = "The user was made by the parent of this process";
constexpr const char* kNoCredentials = "User name or password can't be sent to a hub";
constexpr const char* kNoMessageHandler =
    "Cannot start session without first registering a message event handler";

// Allocated once and never destroyed: a session may log in while the process ends.
tp::ProcessMutex& languageMutex() {
    static auto* const mutex = new tp::ProcessMutex(kLockLanguage);
    return *mutex;
}

std::string& languageWord() {
    static auto* const word = new std::string("C++");
    return *word;
}

} // namespace

SessionImpl::SessionImpl(tivra::UserInfo& user, tivra::SessionEventHandler& handler,
                         tivra::Session& publicSession, bool valid)
    : userInfo(user)
    , m_user(HandleAccess::impl(user))
    , sessionHandler(&handler)
    , session(publicSession)
    , isValid(valid)
    , m_events(publicSession, [this] { askForCheck(); })
    , m_sources(*this, m_events) {}

SessionImpl::~SessionImpl() {
    m_startStop.endForGood();
    m_user.discardEvents(session);
    m_events.clear();
    m_hosts.clear();
}

void SessionImpl::setLanguage(const std::string& word) {
    tp::MutexLock lock(languageMutex());
    languageWord() = word;
}

std::string SessionImpl::getLanguage() const {
    tp::MutexLock lock(languageMutex());
    return languageWord();
}

tivra::SessionConfig& SessionImpl::getSessionConfig() {
    tp::MutexLock lock(m_config_mutex);
    if (!sessionConfig)
        sessionConfig = HandleAccess::make<tivra::SessionConfig>(std::make_unique<SessionConfigImpl>());
    return *sessionConfig;
}

tivra::ConnectionConfig& SessionImpl::getConnectionConfig() {
    tp::MutexLock lock(m_config_mutex);
    if (!connectionConfig)
        connectionConfig =
            HandleAccess::make<tivra::ConnectionConfig>(std::make_unique<ConnectionConfigImpl>(m_hosts));
    return *connectionConfig;
}

SessionConfigImpl& SessionImpl::settings() {
    return HandleAccess::impl(getSessionConfig());
}

void SessionImpl::readConfiguration(bool isRunning) {
    m_queueDepthThreshold = static_cast<int>(settings().getQueueThreshold());
    if (isRunning)
        return;
    HandleAccess::impl(getConnectionConfig()).lookUpNamesOnce();
    m_hostLists.read(m_hosts, m_managers);
    m_allowedHubs = HandleAccess::impl(getConnectionConfig()).makeAllowedHubs();
}

const char* SessionImpl::reasonAgainstStart() {
    if (m_hostLists.primary().empty())
        return kNoPrimary;
    if (!isValid)
        return kNotValid;
    if (m_user.process().isForeign())
        return kUserOfParent;
    if (!m_user.isUsable())
        return kNoCredentials;
    return m_msgEventHandler.load() == nullptr && m_streams == nullptr ? kNoMessageHandler : nullptr;
}

void SessionImpl::registerMessageEventHandler(tivra::MessageEventHandler* handler) {
    m_msgEventHandler = handler;
    eprintf(EPF_INFO, "Registered MessageEventHandler %p", static_cast<const void*>(handler));
}

void SessionImpl::registerStatisticsEventHandler(tivra::StatisticsEventHandler* handler, int interval) {
    statsHandler = handler;
    statsInterval = static_cast<double>(interval);
    eprintf(EPF_INFO, "Registered StatisticsEventHandler %p with %d second interval",
            static_cast<const void*>(handler), interval);
}

void SessionImpl::setRetCodeDesc(int code, const char* text, long length) {
    if (code == kStatusConnectionLost)
        return; // no hub says what the library means by it
    m_retCodes.set(code, std::string_view(text, length < 0 ? 0 : static_cast<std::size_t>(length)));
}

bool SessionImpl::isFirstHub(const HubClient* hub) const {
    return m_hubs.getFirstHub() == hub;
}

void SessionImpl::reportHub(const HubReport& report) {
    if (m_hubWatcher != nullptr)
        m_hubWatcher->hubChanged(report);
}

void SessionImpl::dialNow() {
    m_hubs.forEach([](HubClient& client) { client.dialNow(); });
}

void SessionImpl::noteHubDown(HubClient* client) {
    m_sources.hubStatus().noteDown(client);
}

void SessionImpl::countHubLoss(HubClient* client) {
    // A first hub that the session has let go on purpose is no loss, nor is a hub that it connects late.
    const bool isComingXref = m_managers.m_isCMconnection && m_xref.isComing(*client);
    if (!client->getInitialHubDisconnected() && !client->life().hasLeft() && !isComingXref)
        m_check.countLoss();
}

void SessionImpl::enterReadyHub(HubClient* client) {
    m_lost.stopWaitingForQueue(client);
    m_newHubs.enterReady(*client);
    wakeMaster();
    askForCheck();
}

void SessionImpl::endOutstanding(HubClient* client) {
    // No request has this tag. It has the hub's user thread look, and report the loss to the stream.
    if (m_streams != nullptr)
        m_lost.add(client, {0});
    m_merger.endOutstanding(client);
}

void SessionImpl::hubHasChanged() {
    m_reactors.userLoops().askFirst(kCheckSession | kDeliverUserEvent);
}

void SessionImpl::addJitCount(int delta) {
    m_check.addJitCount(delta);
    askForCheck();
}

void SessionImpl::insertSessionEvent(tivra::SessionEvent::Types type, const std::string& dicVersion,
                                     int sourceID, int queueDepth) {
    m_events.push(type, dicVersion, sourceID, queueDepth);
}

SessionImpl::PortCursor SessionImpl::nextSourceWithoutHub(int after, HubClient* client) {
    PortCursor cursor;
    cursor.source = m_sources.nextWithoutHub(after, client, cursor.last);
    return cursor;
}

void SessionImpl::addSplitExchange(int src, HubClient* client) {
    m_split.addSplitExchange(src, client);
}

void SessionImpl::addSplitSymbol(int src, const std::string& pattern, HubClient* client) {
    m_split.addSplitSymbol(src, pattern.c_str(), client, client->getHubAddr(), m_dropped.listed());
}

} // namespace tivra_internal
