#pragma once

#include "Journal.h"
#include "PlaybackEngine.h"
#include "Responder.h"
#include "tivra_sim/Hub.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

namespace tivra_sim {

/// How a hub misbehaves at the moment.
struct Misbehaviour {
    struct Refusal {
        std::string command;
        /// The status to answer with, or how the answer is spoilt; nothing withholds it.
        std::variant<std::monostate, int, Hub::Wrong> answer;
        unsigned timesLeft = 0; ///< 0 is for good
    };

    bool isSilent = false;
    bool isDeaf = false;
    bool isAccepting = true;
    std::chrono::milliseconds answerDelay{0};
    std::vector<Refusal> refusals;
    WriteShape shape;
    Hub::Script script;
};

/// The running hub: one thread with an epoll loop over the listening socket, the clients, one timer and the
/// tasks that other threads hand in. Everything below is owned by that thread while it runs, and by whoever
/// holds the task mutex while it does not.
class HubEngine {
public:
    explicit HubEngine(HubConfig config, std::shared_ptr<GroupDirectory> group = nullptr,
                       std::size_t member = 0);
    ~HubEngine();

    void start();
    void stop();
    [[nodiscard]] bool isRunning() const;
    [[nodiscard]] std::uint16_t port() const { return m_port.load(); }
    [[nodiscard]] const HubConfig& config() const { return m_config; }
    Journal& journal() { return m_journal; }
    [[nodiscard]] const Journal& journal() const { return m_journal; }

    /// Runs `task` on the hub's thread and returns when it is done; on the caller's while the hub does not
    /// run.
    void run(const std::function<void()>& task);

    /// @name For tasks
    /// @{
    Misbehaviour& misbehaviour() { return m_misbehaviour; }
    HubModel& model() { return m_state.model; }
    void startPlayback();
    void stopPlayback() { m_playback.stop(); }
    void drop(Hub::Close how);
    void halfClose();
    void dropAfter(std::int64_t bytes, std::int64_t frames, Hub::Close how);
    void applyShape();
    void applyDeafness();
    std::size_t publishRecord(std::string_view body, FrameKind kind);
    std::size_t sendToAll(std::string_view frame, FrameKind kind, bool onlyLoggedIn);
    /// Sends the alert about a source to the connections of a user, or to all. Returns how many got it.
    std::size_t alert(int source, bool granted, const std::optional<std::string_view>& user);
    /// Lets the group know what this hub carries.
    void announceBox();
    [[nodiscard]] std::vector<PresentSubscription> presentSubscriptions() const;
    std::size_t sendToSubscribers(SymbolEntry& entry, std::string_view body, FrameKind kind);
    std::size_t pushHeartbeat();
    std::size_t pushHubStatus();
    void setHubStatus(std::int64_t droppedBytes, std::int64_t idleCount);
    /// @}

private:
    struct Task {
        const std::function<void()>* work = nullptr;
        std::promise<void> done;
    };

    void listen();
    void announcePlace();
    void loop();
    void waitForEvents();
    void runTasks();
    void runTask(Task& task);
    void acceptAll();
    void admit(Descriptor socket);
    void readFrom(Connection& connection);
    void serve(Connection& connection, std::string_view text);
    [[nodiscard]] Hub::Frames framesFor(Connection& connection, const Request& request);
    /// What is to be done in place of the good answer, counted down.
    std::optional<Misbehaviour::Refusal> takeRefusal(std::string_view command);
    void runTimers(Clock::time_point now);
    void flushAll(Clock::time_point now);
    void flush(Connection& connection, Clock::time_point now);
    void watch(Connection& connection);
    void removeClosed();
    void closeConnection(Connection& connection, Hub::Close how);
    void publish();
    void armTimer(Clock::time_point now);
    [[nodiscard]] std::size_t subscriptions() const;
    void leave();

    const HubConfig m_config;
    Journal m_journal;
    std::atomic<std::uint16_t> m_port;

    const std::shared_ptr<GroupDirectory> m_group;
    HubState m_state;
    Responder m_responder;
    PlaybackEngine m_playback;
    std::unique_ptr<TlsServer> m_tls; ///< null for plain connections
    Misbehaviour m_misbehaviour;

    Descriptor m_epoll;
    Descriptor m_wake;
    Descriptor m_timer;
    Descriptor m_place; ///< from the first start on: nobody else gets the port while the hub is stopped
    Descriptor m_listener;
    std::uint64_t m_nextConnection = 1;
    /// Connections to close once the loop does not walk over them.
    std::vector<std::pair<Connection*, Hub::Close>> m_closing;
    Hub::Close m_dropHow = Hub::Close::Orderly;
    PlaybackEngine::Next m_playbackNext = PlaybackEngine::Next::Idle;
    Clock::time_point m_nextHeartbeat{};
    Clock::time_point m_nextHubStatus{};
    std::int64_t m_droppedBytes = 0;
    std::int64_t m_idleCount = 0;
    OutputCounters m_sent;
    HubStatistics m_published;
    std::size_t m_accepted = 0;
    bool m_mustStop = false;

    /// Guards the tasks, whether the thread takes them, and all of the above while it does not.
    mutable std::mutex m_taskMutex;
    std::deque<Task> m_tasks;
    bool m_isServing = false;
    std::thread::id m_threadId;

    /// Held over start and stop, so that one does not overtake the other.
    std::mutex m_lifecycleMutex;
    std::thread m_thread;
};

} // namespace tivra_sim
