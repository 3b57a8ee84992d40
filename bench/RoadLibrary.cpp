// The road under test, as an application drives it.
#include "Road.h"
#include "RoadHub.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <tivra.h>

namespace tivra_bench {
namespace {

class Counter : public tivra::SessionEventHandler,
                public tivra::UserEventHandler,
                public tivra::MessageEventHandler {
public:
    explicit Counter(const RoadTask& task)
        : m_isPaced(task.paced), m_findsSymbol(task.findsSymbol), m_progress(task) {
        for (std::size_t i = 0; i < task.hub.ports().size(); ++i)
            for (const char* symbol : kSymbols)
                m_counts[{kSource + static_cast<int>(i), symbol}] = 0;
    }

    void onSessionEvent(const tivra::SessionEvent&) override {}
    void onUserEvent(const tivra::UserEvent&) override {}

    void onMessageEvent(const tivra::MessageEvent& event) override {
        if (event.getType() != tivra::MessageEvent::UPDATE)
            return;
        if (m_findsSymbol)
            ++m_counts.find({event.getSource(), event.getSymbolView()})->second;
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

    using Key = std::pair<int, std::string_view>;
    struct Hash {
        std::size_t operator()(const Key& key) const noexcept {
            return std::hash<std::string_view>()(key.second) * 31 + static_cast<std::size_t>(key.first);
        }
    };

    const bool m_isPaced;
    const bool m_findsSymbol;
    std::unordered_map<Key, std::size_t, Hash> m_counts; ///< by source and symbol
    RoadProgress m_progress;
    std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_finished = false;
};

} // namespace

namespace {

/// Delivery on the hub's thread, which a library of an earlier day doesn't have.
template<class Config>
concept HasInlineCallbacks = requires {
    Config::INLINE_CALLBACKS_BOOL;
};
template<class Config>
void setInlineCallbacks(Config& config) {
    if constexpr (HasInlineCallbacks<Config>)
        config.set(Config::INLINE_CALLBACKS_BOOL, true);
}

/// The same of encryption.
template<class Config>
concept HasTls = requires {
    Config::TLS_BOOL;
};
template<class Config>
void encrypt(tivra::ConnectionConfig& connections, const std::string& issuer) {
    if constexpr (HasTls<Config>)
        connections.set(Config::TLS_BOOL, true).setText(Config::TLS_CA_FILE_STRING, issuer);
}

void subscribe(tivra::Session& session, const RoadTask& task, int source) {
    tivra::Request& request = session.createRequest();
    for (const char* symbol : kSymbols) {
        if (task.paced && std::string(symbol) != kPacedSymbol)
            continue;
        request.clearRequest();
        request.setCommand(tivra::SUBSCRIBE);
        request.add(tivra::ENUM_SRC_ID, source).add(tivra::SYMBOL_TICKER, std::string(symbol));
        session.send(request);
    }
    session.freeRequest(request);
}

} // namespace

bool libraryHasInlineCallbacks() {
    return HasInlineCallbacks<tivra::SessionConfig>;
}

RoadRun runLibrary(const RoadTask& task) {
    Counter counter(task);
    tivra::APIFactory* const factory = tivra::APIFactory::getInstance();
    factory->initialize("bench", "1", false, "/dev/null");
    tivra::UserInfo& user = factory->createUserInfo("demo", "demo", counter);
    tivra::Session& session = factory->createSession(user, counter);
    const std::vector<std::uint16_t>& ports = task.hub.ports();
    // A ring holds a whole pass of its hub, and two of them touch all of it.
    session.getConnectionConfig()
        .set(tivra::HostConfig::COMPRESSION_BOOL, task.compressed)
        .set(tivra::HostConfig::QUEUE_SIZE_LONG,
             static_cast<long>(std::max<std::size_t>(64 / ports.size(), 1)));
    if (!task.issuer.empty())
        encrypt<tivra::HostConfig>(session.getConnectionConfig(), task.issuer);
    // A hub names its own address.
    if (task.isTunnelled)
        session.getConnectionConfig().addNATPair("127.0.0.1", "127.0.0.2");
    for (const std::uint16_t port : ports)
        session.getConnectionConfig().getHostConfig((task.isTunnelled ? "127.0.0.2:" : "127.0.0.1:") +
                                                    std::to_string(port));
    if (task.isInline)
        setInlineCallbacks(session.getSessionConfig());
    session.registerMessageEventHandler(&counter);
    std::string reason;
    if (!session.start(reason))
        throw std::runtime_error("start failed: " + reason);
    for (std::size_t i = 0; i < ports.size(); ++i)
        subscribe(session, task, kSource + static_cast<int>(i));
    RoadRun run = counter.wait();
    session.stop();
    factory->destroySession(session);
    factory->destroyUserInfo(user);
    return run;
}

} // namespace tivra_bench
