#include "hub/HubClient.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "config/UserInfoImpl.h"
#include "hub/HubEventReactor.h"
#include "hub/HubSession.h"
#include "kvnparse/Parser.h"
#include "kvnparse/StreamFramer.h"
#include "kvnparse/StreamParser.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"
#include "request/HubWatchlist.h"

namespace tivra_internal {

namespace {

constexpr size_t kMaxHubAddr = 255;
constexpr long kMaxBlockingLimit = 60'000;        // milliseconds
constexpr long kMaxConnectionTimeout = 2'000'000; // seconds

/// Numbers from 0 up to 1, different for each client and each process.
std::function<double()> chanceOf(const HubClient* client) {
    const auto place = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(client) >> 4U);
    const auto time = static_cast<uint32_t>(static_cast<uint64_t>(tp::Clock::monotonic() * 1e6));
    return [engine = std::minstd_rand(place ^ time)]() mutable {
        return std::uniform_real_distribution<double>(0.0, 1.0)(engine);
    };
}

} // namespace

HubClient::HubClient(UserInfoImpl& user, HubSession& session, const HubClientOptions& options)
    : m_primaryUser(user)
    , m_session(session)
    , m_hostConfig(options.host)
    , m_isDummy(options.isDummy)
    , m_watchlistInUse(options.watchlistInUse)
    , m_compression(options.compression)
    , m_index(options.index)
    , m_connectionTimeout(std::clamp(options.connectionTimeout, 0L, kMaxConnectionTimeout))
    , m_connectionRetryLimit(std::max(options.connectionRetryLimit, 0L))
    , m_readTimeout(std::max(options.readTimeout, 0L))
    , m_blockingConnectionLimit(std::clamp(options.blockingConnectionLimit, 0L, kMaxBlockingLimit))
    , m_givenPort(options.port)
    , m_original_ipaddr(options.address)
    , m_original_port(static_cast<uint16_t>(options.port))
    , m_ip_addr(m_original_ipaddr)
    , m_hub_ip_addr(m_ip_addr)
    , m_port(static_cast<uint16_t>(options.port))
    , m_loginPace(chanceOf(this)) {
    m_primaryUser.newHub(this);
    reset();
    forgetConnection();
    m_last_reset_time = tp::Clock::monotonic();
    resolveAddress(options.label);

    m_responseQueue = std::make_unique<Queue>(static_cast<size_t>(std::max(options.queueSize, 0L)),
                                              m_compression, this, session.getQueueDepthThreshold());
    m_responseQueue->setsocketDesc(getHubAddr().c_str());
    watchlist =
        std::make_unique<HubWatchlist>(this, *this, session.getWatchlist(), session.getRequestSender());
    if (m_isDummy)
        return;
    session.claimFirstHubClient(this);
    m_requestHUBFromCM = session.isCMconnection();
}

HubClient::~HubClient() {
    if (HubEventReactor* const reactor = getReactor(); reactor != nullptr) {
        reactor->forgetClient(this);
        unregisterSocket();
    }
    m_fd.close();
    m_primaryUser.deleteHub(this);
}

// Behind an address translation the hub is dialled by one address and names itself by another.
void HubClient::resolveAddress(const std::string& label) {
    if (m_isDummy) {
        const tp::MutexLock lock(m_text_mutex);
        hubAddr = "non-HUB";
        return;
    }
    const std::string given = getDialledAddr();
    const std::string localIp = m_hostConfig != nullptr ? m_hostConfig->getLocalIp(given) : std::string();
    const std::string hubIp =
        m_hostConfig != nullptr && localIp.empty() ? m_hostConfig->getHubIp(given) : std::string();

    const tp::MutexLock lock(m_text_mutex);
    hubAddr = label;
    if (!localIp.empty())
        m_ip_addr = localIp;
    else if (!hubIp.empty())
        m_hub_ip_addr = hubIp;
    if (!localIp.empty() || !hubIp.empty())
        hubAddr = HostTable::hostInfoOf(m_hub_ip_addr, m_givenPort) + " (" + m_ip_addr + ')';
    hubAddr.resize(std::min(hubAddr.size(), kMaxHubAddr));
}

void HubClient::attachReactor(HubEventReactor* reactor, int index) {
    const tp::MutexLock lock(m_huber_mutex);
    m_HUB_Event_Reactor = reactor;
    m_eventReactorIndex = index;
}

HubEventReactor* HubClient::getReactor() const {
    const tp::MutexLock lock(m_huber_mutex);
    return m_HUB_Event_Reactor;
}

int HubClient::geteventReactorIndex() const {
    const tp::MutexLock lock(m_huber_mutex);
    return m_eventReactorIndex;
}

SessionRequests& HubClient::getRequests() const {
    return m_session;
}

bool HubClient::isReady() const {
    const tp::MutexLock lock(m_ready_mutex);
    return m_ready;
}

std::string HubClient::getSuspendReason() const {
    const tp::MutexLock lock(m_text_mutex);
    return m_suspendReason;
}

std::string HubClient::getHubAddr() const {
    const tp::MutexLock lock(m_text_mutex);
    return hubAddr;
}

std::string HubClient::getHubIpAddr() const {
    const tp::MutexLock lock(m_text_mutex);
    return m_hub_ip_addr;
}

std::string HubClient::getDialledAddr() const {
    const tp::MutexLock lock(m_text_mutex);
    return m_ip_addr;
}

bool HubClient::markReady() {
    {
        const tp::MutexLock lock(m_ready_mutex);
        m_ready = true;
    }
    return !hasReadHandler();
}

bool HubClient::hasReadHandler() const {
    const tp::MutexLock lock(m_rqh_mutex);
    return m_readQueueHandler != nullptr;
}

bool HubClient::isStillDelivering() const {
    return !m_responseQueue->isEmpty() && hasReadHandler();
}

void HubClient::setReadQueueHandler(std::unique_ptr<QueueReadHandler> handler) {
    const tp::MutexLock lock(m_rqh_mutex);
    m_readQueueHandler.swap(handler);
}

QueueReadHandler* HubClient::readQueueHandler() const {
    const tp::MutexLock lock(m_rqh_mutex);
    return m_readQueueHandler.get();
}

std::unique_ptr<QueueReadHandler> HubClient::clearQRHPointer() {
    const tp::MutexLock lock(m_rqh_mutex);
    return std::move(m_readQueueHandler);
}

void HubClient::calcStats(double curtime) {
    if (isReady())
        m_responseQueue->calcStats(curtime);
}

void HubClient::calcQueueFullStats() {
    if (isReady())
        m_responseQueue->calcQueueFullStats();
}

void HubClient::incrQueryCount() {
    m_responseQueue->incrQueryCount();
}

void HubClient::decrQueryCount() {
    m_responseQueue->decrQueryCount();
}

bool HubClient::handleWatchlistResponse(int64_t tag, int64_t status) {
    return watchlist->handleResponse(tag, status);
}

void HubClient::setInitHBTime() {
    m_initHBTime.store(tp::Clock::monotonic(), std::memory_order_relaxed);
}

bool HubClient::isPastRetryLimit() const {
    const bool isPast = m_connectionRetries.load(std::memory_order_relaxed) > m_connectionRetryLimit;
    if (isPast)
        eprintf(EPF_INFO, "Connection retry limit of %ld exceeded for HUB: %s\n", m_connectionRetryLimit,
                getHubAddr().c_str());
    return isPast;
}

void HubClient::startAnew() {
    m_retired = false;
    m_xrefRemove = false;
    m_xrefConnected = false;
    m_inProgress = false;
    m_connectionRetries = 0;
    m_CMconnectionRetries = 0;
    m_lnkapiErrno = 0;
    m_requestHUBFromCM = m_session.isCMconnection();
    {
        // The session check would take it out again before it is dialled.
        const tp::MutexLock lock(m_text_mutex);
        m_suspended.store(false, std::memory_order_release);
        m_suspendReason.clear();
    }
    m_primaryUser.newHub(this);
}

const char* HubClient::retCodeText(int64_t code) const {
    return m_session.getRetCodeDesc(static_cast<int>(std::clamp<int64_t>(code, INT32_MIN, INT32_MAX)));
}

} // namespace tivra_internal
