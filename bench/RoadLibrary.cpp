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
    explicit Counter(const RoadTask& task) : m_isPaced(task.paced), m_progress(task) {}

    void onSessionEvent(const tivra::SessionEvent&) override {}
    void onUserEvent(const tivra::UserEvent&) override {}

    void onMessageEvent(const tivra::MessageEvent& event) override {
        if (event.getType() != tivra::MessageEvent::UPDATE)
            return;
        if (m_isPaced && event.getReader().find(kStampToken))
            m_progress.addLatency(nowNanoseconds() - event.getReader().getValueAsInteger());
        if (m_progress.count())
            finish();
    }

    RoadRun wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_done.wait_for(lock, std::chrono::seconds(60), [this] { return m_finished; }))
            throw std::runtime_error("the library received only " + std::to_string(m_progress.countInPass()) +
                                     " messages in pass " + std::to_string(m_progress.passesDone() + 1));
        return m_progress.run();
    }

private:
    void finish() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_finished = true;
        m_done.notify_all();
    }

    const bool m_isPaced;
    RoadProgress m_progress;
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
        .set(tivra::HostConfig::COMPRESSION_BOOL, task.compressed)
        .set(tivra::HostConfig::QUEUE_SIZE_LONG, 64L)
        .getHostConfig("127.0.0.1:" + std::to_string(task.hub.port()));
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
