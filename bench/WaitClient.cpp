#include "WaitClient.h"

#include "Clock.h"

#include <chrono>
#include <stdexcept>

namespace tivra_bench {
namespace {

constexpr auto kPatience = std::chrono::seconds(60);

} // namespace

WaitClient::WaitClient(const std::vector<std::string>& hosts, bool hasManyThreads)
    : m_factory(tivra::APIFactory::getInstance()) {
    m_factory->initialize("wait", "1", false, "/dev/null");
    m_user = &m_factory->createUserInfo("demo", "demo", *this);
    m_session = &m_factory->createSession(*m_user, *this);
    m_session->getSessionConfig().set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL,
                                      hasManyThreads);
    m_session->getConnectionConfig().set(tivra::HostConfig::COMPRESSION_BOOL, false);
    for (const std::string& host : hosts)
        m_session->getConnectionConfig().getHostConfig(host);
    m_session->registerMessageEventHandler(this);
    m_request = &m_session->createRequest();
}

WaitClient::~WaitClient() {
    m_session->freeRequest(*m_request);
    m_factory->destroySession(*m_session);
    m_factory->destroyUserInfo(*m_user);
    m_factory->uninitialize();
}

bool WaitClient::start() {
    std::string reason;
    return m_session->start(reason);
}

std::vector<std::int64_t> WaitClient::snapshots(std::size_t count, int source, const std::string& symbol) {
    {
        const std::lock_guard lock(m_mutex);
        m_answers.clear();
        m_answers.reserve(count);
        m_wanted = count;
    }
    m_request->clearRequest();
    m_request->setCommand(tivra::QUERYSNAP);
    m_request->add(tivra::ENUM_SRC_ID, source).add(tivra::SYMBOL_TICKER, symbol);
    for (std::size_t i = 0; i < count; ++i)
        if (m_session->send(*m_request) == 0)
            throw std::runtime_error("send refused a request");
    std::unique_lock lock(m_mutex);
    if (!m_changed.wait_for(lock, kPatience, [&] { return m_answers.size() == count; }))
        throw std::runtime_error("a snapshot was not answered");
    if (m_hasRefusal)
        throw std::runtime_error("a snapshot was refused");
    return m_answers;
}

void WaitClient::forgetEvents() {
    const std::lock_guard lock(m_mutex);
    m_lossAt = m_refusalAt = m_establishedAt = 0;
}

void WaitClient::onSessionEvent(const tivra::SessionEvent& event) {
    if (event.getType() == tivra::SessionEvent::TIVRA_SESSION_UNAVAILABLE)
        note(m_lossAt);
    else if (event.getType() == tivra::SessionEvent::TIVRA_SESSION_ESTABLISHED)
        note(m_establishedAt);
}

void WaitClient::onUserEvent(const tivra::UserEvent& event) {
    if (event.getType() == tivra::UserEvent::AUTHORIZATION_FAILURE)
        note(m_refusalAt);
}

void WaitClient::onMessageEvent(const tivra::MessageEvent& event) {
    if (event.getType() != tivra::MessageEvent::IMAGE_COMPLETE)
        return;
    const std::int64_t now = nowNanoseconds();
    const std::lock_guard lock(m_mutex);
    m_answers.push_back(now);
    m_hasRefusal = m_hasRefusal || event.getStatusCode() != 0;
    if (m_answers.size() == m_wanted)
        m_changed.notify_all();
}

void WaitClient::note(std::int64_t& event) {
    const std::int64_t now = nowNanoseconds();
    const std::lock_guard lock(m_mutex);
    if (event == 0)
        event = now;
    m_changed.notify_all();
}

std::int64_t WaitClient::waitFor(const std::int64_t& event) {
    std::unique_lock lock(m_mutex);
    if (!m_changed.wait_for(lock, kPatience, [&event] { return event != 0; }))
        throw std::runtime_error("an event did not come within a minute");
    return event;
}

} // namespace tivra_bench
