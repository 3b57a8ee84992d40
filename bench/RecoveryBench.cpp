// How long a subscriber is without data after a loss: median and worst of many, beside the waits that the
// rules ask for. usage: tivra_recovery_bench [LOSSES] [--quick] [--json FILE]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <tivra.h>
#include <tivra_sim/HubGroup.h>

#include "Interleave.h"
#include "Report.h"

using namespace tivra_bench;
using std::chrono::steady_clock;
using tivra_sim::Hub;
using tivra_sim::HubConfig;
using tivra_sim::Record;

namespace {

constexpr auto kPatience = std::chrono::seconds(60);
constexpr long kSilence = 1; ///< seconds without a byte after which a hub counts as lost

/// Subscribes one symbol and knows when it heard of it last.
class Subscriber : public tivra::SessionEventHandler,
                   public tivra::UserEventHandler,
                   public tivra::MessageEventHandler {
public:
    Subscriber(const std::string& primary, const std::string& backup) {
        tivra::APIFactory* factory = tivra::APIFactory::getInstance();
        factory->initialize("recovery", "1", false, "/dev/null", "");
        m_user = &factory->createUserInfo("demo", "demo", *this);
        m_session = &factory->createSession(*m_user, *this);
        m_session->registerMessageEventHandler(this);
        m_session->getSessionConfig().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
        tivra::ConnectionConfig& connections = m_session->getConnectionConfig();
        connections.set(tivra::HostConfig::COMPRESSION_BOOL, false);
        connections.set(tivra::HostConfig::READ_TIMEOUT_LONG, kSilence);
        connections.getHostConfig(primary);
        if (!backup.empty())
            connections.getHostConfig(backup).set(tivra::HostConfig::BACKUP_BOOL, true);
        tivra::Request& request = m_session->createRequest();
        request.setCommand(tivra::SUBSCRIBE);
        request.add(tivra::ENUM_SRC_ID, 100).add(tivra::SYMBOL_TICKER, std::string("IBM"));
        m_session->send(request);
        m_session->freeRequest(request);
    }
    ~Subscriber() override {
        tivra::APIFactory* factory = tivra::APIFactory::getInstance();
        factory->destroySession(*m_session);
        factory->destroyUserInfo(*m_user);
        factory->uninitialize();
    }
    Subscriber(const Subscriber&) = delete;
    Subscriber& operator=(const Subscriber&) = delete;

    void start() {
        std::string reason;
        if (!m_session->start(reason))
            throw std::runtime_error("no start: " + reason);
    }
    void stop() { m_session->stop(); }

    void onMessageEvent(const tivra::MessageEvent& event) override {
        if (event.getType() != tivra::MessageEvent::UPDATE)
            return;
        note([this] { ++m_updates; });
    }
    void onSessionEvent(const tivra::SessionEvent& event) override {
        if (event.getType() == tivra::SessionEvent::TIVRA_SESSION_UNAVAILABLE)
            note([this] { ++m_losses; });
    }
    void onUserEvent(const tivra::UserEvent&) override {}

    std::size_t updates() {
        const std::lock_guard lock(m_mutex);
        return m_updates;
    }
    std::size_t losses() {
        const std::lock_guard lock(m_mutex);
        return m_losses;
    }
    void waitForUpdate(std::size_t before) {
        waitFor([&] { return m_updates > before; });
    }
    void waitForLoss(std::size_t before) {
        waitFor([&] { return m_losses > before; });
    }

private:
    void note(const std::function<void()>& change) {
        const std::lock_guard lock(m_mutex);
        change();
        m_changed.notify_all();
    }
    void waitFor(const std::function<bool()>& condition) {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, kPatience, condition))
            throw std::runtime_error("nothing came back within a minute");
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::size_t m_updates = 0;
    std::size_t m_losses = 0;
    tivra::UserInfo* m_user = nullptr;
    tivra::Session* m_session = nullptr;
};

/// Publishes an update a millisecond on every hub.
class Publisher {
public:
    explicit Publisher(std::vector<Hub*> hubs)
        : m_thread([this, hubs = std::move(hubs)] {
            for (int number = 0; !m_mustEnd; ++number) {
                for (Hub* hub : hubs)
                    hub->pushRecord(Record(100, "IBM").add(tivra_sim::token::BID, number));
                std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the pace of the data
            }
        }) {}
    ~Publisher() {
        m_mustEnd = true;
        m_thread.join();
    }
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;

private:
    std::atomic<bool> m_mustEnd{false};
    std::thread m_thread;
};

HubConfig hubConfig() {
    HubConfig config = HubConfig::realistic();
    config.heartbeat.interval = std::chrono::milliseconds(100);
    return config;
}

/// What is lost, what follows from the rules, and how it is done; it returns when the hub's last byte was
/// sent.
struct Loss {
    const char* name;
    const char* waits;
    bool hasBackup;
    std::function<void(Subscriber&, Hub& inUse)> strike;
    std::function<void(Subscriber&, Hub& inUse)> afterwards;
};

std::vector<double> measure(const Loss& loss, std::size_t losses) {
    Hub primary(hubConfig());
    Hub backup(hubConfig());
    primary.start();
    backup.start();
    std::vector<double> seconds;
    const Publisher publisher({&primary, &backup});
    Subscriber subscriber(primary.hostString(), loss.hasBackup ? backup.hostString() : "");
    subscriber.start();
    subscriber.waitForUpdate(0);
    for (std::size_t i = 0; i < losses; ++i) {
        // Losses fall anywhere between two looks of the supervision.
        std::this_thread::sleep_for(std::chrono::milliseconds(i * 37 % 1000));
        Hub& inUse = primary.statistics().connections > 0 ? primary : backup;
        const auto begin = steady_clock::now();
        loss.strike(subscriber, inUse);
        // What was under way has arrived before anything can come back.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        subscriber.waitForUpdate(subscriber.updates());
        seconds.push_back(std::chrono::duration<double>(steady_clock::now() - begin).count());
        loss.afterwards(subscriber, inUse);
    }
    return seconds;
}

void print(const Loss& loss, const std::vector<double>& seconds) {
    std::printf("  %-44s median %6.3f s, worst %6.3f s; waits asked for: %s\n", loss.name, median(seconds),
                *std::max_element(seconds.begin(), seconds.end()), loss.waits);
    std::fflush(stdout);
    Report::get().add(loss.name, seconds, "s");
}

int run(std::size_t losses) {
    Report::get().setSection("Recovery");
    const auto nothing = [](Subscriber&, Hub&) {};
    const Loss table[] = {
        {"connection ended by the hub", "1 to 2 s (noticed, dialled again)", false,
         [](Subscriber&, Hub& hub) { hub.dropConnections(); }, nothing},
        {"connection reset", "1 to 2 s", false,
         [](Subscriber&, Hub& hub) { hub.dropConnections(Hub::Close::Reset); }, nothing},
        {"hub silent for a read time-out of 1 s", "2 to 5 s (silence is looked for once in a time-out)",
         false,
         [](Subscriber& subscriber, Hub& hub) {
             const std::size_t before = subscriber.losses();
             hub.setSilent(true);
             subscriber.waitForLoss(before);
             hub.setSilent(false);
         },
         nothing},
        {"hub gone, the other side takes over", "2 to 5 s (noticed, refused, threads ended, dialled)", true,
         [](Subscriber&, Hub& hub) { hub.stop(); },
         [](Subscriber& subscriber, Hub& hub) {
             // A new start is no change of sides, of which there may be one in 15 seconds.
             hub.start();
             subscriber.stop();
             subscriber.start();
             subscriber.waitForUpdate(subscriber.updates());
         }},
    };
    std::printf("From a loss to the first update after it, %zu times each\n", losses);
    for (const Loss& loss : table)
        print(loss, measure(loss, losses));
    Report::get().finish();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        const Options options(argc, argv, 50);
        return run(static_cast<std::size_t>(options.isQuick ? std::min(options.rounds, 5) : options.rounds));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tivra_recovery_bench: %s\n", error.what());
        return 1;
    }
}
