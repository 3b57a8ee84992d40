#include "RequestLoad.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include <time.h>

#include <tivra.h>

#include "ChildProcess.h"
#include "GroupProcess.h"
#include "HeapSize.h"

namespace tivra_bench {
namespace {

double now(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Counts the answers of all hubs.
class Answers : public tivra::SessionEventHandler,
                public tivra::UserEventHandler,
                public tivra::MessageEventHandler {
public:
    void onSessionEvent(const tivra::SessionEvent&) override {}
    void onUserEvent(const tivra::UserEvent&) override {}

    void onMessageEvent(const tivra::MessageEvent& event) override {
        if (event.getType() != tivra::MessageEvent::STATUS || event.getTag() == 0)
            return;
        if (event.getStatusCode() != 0)
            ++m_refused;
        if (++m_count == m_wanted) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_complete.notify_all();
        }
    }

    /// Before the questions are asked.
    void expect(std::size_t count) {
        m_count = 0;
        m_wanted = count;
    }

    void wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        const bool complete =
            m_complete.wait_for(lock, std::chrono::seconds(90), [this] { return m_count >= m_wanted; });
        if (!complete || m_refused > 0)
            throw std::runtime_error(std::to_string(m_count) + " of " + std::to_string(m_wanted) +
                                     " answers came, and " + std::to_string(m_refused) + " were refusals");
    }

private:
    std::atomic<std::size_t> m_count{0};
    std::atomic<std::size_t> m_wanted{0};
    std::atomic<std::size_t> m_refused{0};
    std::mutex m_mutex;
    std::condition_variable m_complete;
};

class Client {
public:
    Client(const GroupProcess& group, const RequestTask& task) : m_group(group), m_task(task) {
        m_session.getSessionConfig()
            .set(tivra::SessionConfig::WATCHLIST_BOOL, true)
            .set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, task.manyHubThreads);
        m_session.getConnectionConfig()
            .set(tivra::HostConfig::COMPRESSION_BOOL, false)
            .getHostConfig(group.hostString());
        m_session.registerMessageEventHandler(&m_answers);
        std::string reason;
        if (!m_session.start(reason))
            throw std::runtime_error("start failed: " + reason);
    }

    RequestRun run() {
        RequestRun run;
        // Every hub has answered once, so that all threads, rings and routes are there.
        subscribe(0, kGroupHubs);
        m_answers.wait();

        const double heap = heapBytes();
        const double resident = residentBytes();
        double wall = now(CLOCK_MONOTONIC);
        double cpu = now(CLOCK_PROCESS_CPUTIME_ID);
        const double thread = now(CLOCK_THREAD_CPUTIME_ID);
        subscribe(kGroupHubs, m_task.requests);
        run.sendCpu = now(CLOCK_THREAD_CPUTIME_ID) - thread;
        run.sendSeconds = now(CLOCK_MONOTONIC) - wall;
        m_answers.wait();
        run.answeredSeconds = now(CLOCK_MONOTONIC) - wall;
        run.answeredCpu = now(CLOCK_PROCESS_CPUTIME_ID) - cpu;
        run.heapBytes = heapBytes() - heap;
        run.residentBytes = residentBytes() - resident;

        cpu = now(CLOCK_PROCESS_CPUTIME_ID);
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        run.idleCpu = (now(CLOCK_PROCESS_CPUTIME_ID) - cpu) * 4;

        wall = now(CLOCK_MONOTONIC);
        cpu = now(CLOCK_PROCESS_CPUTIME_ID);
        m_answers.expect(kGroupHubs + m_task.requests);
        m_group.dropConnections();
        m_answers.wait();
        run.replaySeconds = now(CLOCK_MONOTONIC) - wall;
        run.replayCpu = now(CLOCK_PROCESS_CPUTIME_ID) - cpu;
        m_session.stop();
        return run;
    }

private:
    void subscribe(std::size_t first, std::size_t count) {
        m_answers.expect(count);
        tivra::Request& request = m_session.createRequest();
        for (std::size_t i = first; i < first + count; ++i) {
            request.clearRequest();
            request.setCommand(tivra::SUBSCRIBE);
            request.add(tivra::ENUM_SRC_ID, kFirstSource + static_cast<int>(i % kGroupHubs))
                .add(tivra::SYMBOL_TICKER, symbolOf(i));
            if (m_session.send(request) == 0)
                throw std::runtime_error("send refused a request");
        }
        m_session.freeRequest(request);
    }

    const GroupProcess& m_group;
    const RequestTask m_task;
    Answers m_answers;
    tivra::APIFactory* const m_factory = initialized();
    tivra::UserInfo& m_user = m_factory->createUserInfo("demo", "demo", m_answers);
    tivra::Session& m_session = m_factory->createSession(m_user, m_answers);

    static tivra::APIFactory* initialized() {
        tivra::APIFactory* const factory = tivra::APIFactory::getInstance();
        factory->initialize("bench", "1", false, "/dev/null");
        return factory;
    }
};

} // namespace

RequestRun runRequests(const GroupProcess& group, const RequestTask& task) {
    const ChildProcess process([&group, &task](const ChildProcess::Ends& parent) {
        const RequestRun run = Client(group, task).run();
        if (!writeAll(parent.tell, &run, sizeof run))
            throw std::runtime_error("nobody waits for the run");
    });
    RequestRun run;
    if (!process.read(&run, sizeof run))
        throw std::runtime_error("a run did not come to its end");
    return run;
}

} // namespace tivra_bench
