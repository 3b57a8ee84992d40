// The road under test, as an application drives it.
#include "Road.h"
#include "RoadHub.h"

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>

#include <tivra.h>

namespace tivra_bench {
namespace {

class Counter : public tivra::SessionEventHandler,
                public tivra::UserEventHandler,
                public tivra::MessageEventHandler {
public:
    explicit Counter(const RoadTask& task) : m_task(task) {
        m_run.latencies.reserve(task.paced ? task.messages : 0);
    }

    void onSessionEvent(const tivra::SessionEvent&) override {}
    void onUserEvent(const tivra::UserEvent&) override {}

    void onMessageEvent(const tivra::MessageEvent& event) override {
        if (event.getType() != tivra::MessageEvent::UPDATE || m_run.messages == m_task.messages)
            return;
        if (m_run.messages == warmUp(m_task))
            m_meter.begin();
        ++m_run.messages;
        if (m_task.paced && event.getReader().find(kStampToken))
            m_run.latencies.push_back(nowNanoseconds() - event.getReader().getValueAsInteger());
        if (m_run.messages == m_task.messages)
            finish();
    }

    RoadRun wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_done.wait_for(lock, std::chrono::seconds(120), [this] { return m_finished; }))
            throw std::runtime_error("the library received only " + std::to_string(m_run.messages) +
                                     " messages");
        return m_run;
    }

private:
    void finish() {
        m_meter.end(m_run);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_finished = true;
        m_done.notify_all();
    }

    const RoadTask m_task;
    RoadMeter m_meter;
    RoadRun m_run;
    std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_finished = false;
};

} // namespace

RoadRun runLibrary(const RoadTask& task) {
    Counter counter(task);
    tivra::APIFactory* const factory = tivra::APIFactory::getInstance();
    factory->initialize("bench", "1", false, "/dev/null");
    tivra::UserInfo& user = factory->createUserInfo("demo", "demo", counter);
    tivra::Session& session = factory->createSession(user, counter);
    session.getConnectionConfig()
        .set(tivra::HostConfig::COMPRESSION_BOOL, false)
        .set(tivra::HostConfig::QUEUE_SIZE_LONG, 64L)
        .getHostConfig("127.0.0.1:" + std::to_string(task.port));
    session.registerMessageEventHandler(&counter);
    std::string reason;
    if (!session.start(reason))
        throw std::runtime_error("start failed: " + reason);
    for (const char* symbol : kSymbols) {
        if (task.paced && std::string(symbol) != kPacedSymbol)
            continue;
        tivra::Request& request = session.createRequest();
        request.setCommand(tivra::SUBSCRIBE);
        request.add(tivra::ENUM_SRC_ID, kSource).add(tivra::SYMBOL_TICKER, std::string(symbol));
        session.send(request);
        session.freeRequest(request);
    }
    RoadRun run = counter.wait();
    session.stop();
    factory->destroySession(session);
    factory->destroyUserInfo(user);
    return run;
}

} // namespace tivra_bench
