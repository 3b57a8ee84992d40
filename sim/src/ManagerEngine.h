#pragma once

#include "Descriptor.h"
#include "tivra_sim/Manager.h"

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace tivra_sim {

/// The thread behind a Manager. It serves one client after the other: a client asks one question at a time.
class ManagerEngine {
public:
    explicit ManagerEngine(ManagerConfig config) : m_config(std::move(config)) {}
    ~ManagerEngine() { stop(); }
    ManagerEngine(const ManagerEngine&) = delete;
    ManagerEngine& operator=(const ManagerEngine&) = delete;

    void start();
    void stop();

    /// What a manager is told and what it has heard, under the mutex.
    template<class Use>
    auto use(Use use) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return use(*this);
    }
    ManagerConfig& config() { return m_config; }
    std::string& text() { return m_text; }
    bool& isSilent() { return m_isSilent; }
    std::vector<Manager::Question>& questions() { return m_questions; }
    std::map<std::uint16_t, std::size_t>& turns() { return m_turns; }
    bool waitForQuestions(std::size_t count, std::chrono::milliseconds deadline);

private:
    void serve();
    void serveClient(const Descriptor& client);
    /// The three lines of a question; nothing when the client goes, says too much, or the manager stops.
    std::optional<std::string> readQuestion(const Descriptor& client);
    /// Nothing to keep silent.
    std::optional<std::string> answerTo(const std::string& question);
    /// True when `fd` can be read, false after `limit` or when the manager stops.
    [[nodiscard]] bool waitReadable(int fd, std::chrono::milliseconds limit) const;

    std::mutex m_mutex; ///< guards all but the descriptors and the thread
    std::condition_variable m_asked;
    ManagerConfig m_config;
    std::string m_text;
    bool m_isSilent = false;
    std::vector<Manager::Question> m_questions;
    std::map<std::uint16_t, std::size_t> m_turns; ///< how many addresses have been handed out for a port

    Descriptor m_place; ///< from the first start on: nobody else gets the port while the manager is stopped
    Descriptor m_listener;
    Descriptor m_end; ///< readable once the manager stops
    std::thread m_thread;
};

} // namespace tivra_sim
