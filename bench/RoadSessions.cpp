// The road through as many sessions as there are hubs, one for each, as programs of many users have them.
#include "Road.h"
#include "RoadHub.h"

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <tivra.h>

namespace tivra_bench {
namespace {

/// Counts down the sessions that haven't had all of a pass yet.
class PassEnd {
public:
    void begin(std::size_t sessions) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_open = sessions;
    }
    void countDown() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (--m_open == 0)
            m_done.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_done.wait_for(lock, std::chrono::seconds(60), [this] { return m_open == 0; }))
            throw std::runtime_error(std::to_string(m_open) + " sessions have not received all of a pass");
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    std::size_t m_open = 0;
};

/// A session at one hub, whose messages come on a thread of its own.
class OneSession : public tivra::SessionEventHandler,
                   public tivra::UserEventHandler,
                   public tivra::MessageEventHandler {
public:
    OneSession(const RoadTask& task, std::size_t index, PassEnd& end)
        : m_quota(task.messages / task.hub.ports().size())
        , m_end(end)
        , m_factory(*tivra::APIFactory::getInstance())
        , m_user(m_factory.createUserInfo("demo", "demo", *this))
        , m_session(m_factory.createSession(m_user, *this)) {
        // A ring holds a whole pass of its hub.
        const std::vector<std::uint16_t>& ports = task.hub.ports();
        m_session.getConnectionConfig()
            .set(tivra::HostConfig::COMPRESSION_BOOL, false)
            .set(tivra::HostConfig::QUEUE_SIZE_LONG,
                 static_cast<long>(std::max<std::size_t>(64 / ports.size(), 1)))
            .getHostConfig("127.0.0.1:" + std::to_string(ports[index]));
        m_session.registerMessageEventHandler(this);
        std::string reason;
        if (!m_session.start(reason))
            throw std::runtime_error("start failed: " + reason);
        tivra::Request& request = m_session.createRequest();
        for (const char* symbol : kSymbols) {
            request.clearRequest();
            request.setCommand(tivra::SUBSCRIBE);
            request.add(tivra::ENUM_SRC_ID, kSource + static_cast<int>(index))
                .add(tivra::SYMBOL_TICKER, std::string(symbol));
            m_session.send(request);
        }
        m_session.freeRequest(request);
    }
    ~OneSession() override {
        m_session.stop();
        m_factory.destroySession(m_session);
        m_factory.destroyUserInfo(m_user);
    }
    OneSession(const OneSession&) = delete;
    OneSession& operator=(const OneSession&) = delete;

    void onSessionEvent(const tivra::SessionEvent&) override {}
    void onUserEvent(const tivra::UserEvent&) override {}
    void onMessageEvent(const tivra::MessageEvent& event) override {
        if (event.getType() == tivra::MessageEvent::UPDATE && ++m_count % m_quota == 0)
            m_end.countDown();
    }

private:
    const std::size_t m_quota; ///< messages of a pass
    PassEnd& m_end;
    std::size_t m_count = 0; ///< the session's user thread alone
    tivra::APIFactory& m_factory;
    tivra::UserInfo& m_user;
    tivra::Session& m_session;
};

} // namespace

RoadRun runSessions(const RoadTask& task) {
    tivra::APIFactory::getInstance()->initialize("bench", "1", false, "/dev/null");
    const std::size_t count = task.hub.ports().size();
    PassEnd end;
    end.begin(count);
    std::vector<std::unique_ptr<OneSession>> sessions;
    for (std::size_t i = 0; i < count; ++i)
        sessions.push_back(std::make_unique<OneSession>(task, i, end));
    double cpu = 0.0;
    for (std::size_t pass = 0; pass < task.passes; ++pass) {
        if (pass > 0) {
            end.begin(count);
            cpu = processorSeconds();
            task.hub.playAgain();
        }
        end.wait();
    }
    RoadRun run;
    run.cpuSeconds = processorSeconds() - cpu;
    return run;
}

} // namespace tivra_bench
