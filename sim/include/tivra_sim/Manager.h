#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tivra_sim {

class ManagerEngine;

/// Everything that a connection manager is started with.
struct ManagerConfig {
    /// Address to listen on: what a client is told to dial. Any of 127.0.0.0/8 is the machine itself.
    std::string address = "127.0.1.1";
    /// Port to listen on; 0 takes a free one, see Manager::port(). All managers of a client share it.
    std::uint16_t port = 0;
    /// Names and passwords; none lets everybody in.
    std::map<std::string, std::string> users;
    /// By a hub's port: the addresses that are handed out for it, in turn.
    std::map<std::uint16_t, std::vector<std::string>> hubs;
    /// What is handed out for every other port; empty for nothing.
    std::string otherHubs = "127.0.0.1";
    /// The status of every answer, 0 to serve.
    int status = 0;
    /// How much later an answer comes.
    std::chrono::milliseconds delay{0};
};

/// A connection manager: it is asked for the hub behind a port and hands out the address of one.
///
/// Clients ask through liblnkapi64.so. The one that is built beside the simulator asks this class: it dials
/// the manager's address at the port that the environment variable TIVRA_SIM_MANAGER_PORT names. A question
/// is three lines ("address:port" of what was configured, user, password), an answer one: a status, a blank,
/// and the text of the answer. All operations may be called from any thread, but for start and stop, which
/// belong to the owner's threads.
class Manager {
public:
    struct Question {
        std::string address;       ///< of the manager, as the client has it
        std::uint16_t hubPort = 0; ///< 0 when it could not be read
        std::string user;
    };

    explicit Manager(ManagerConfig config = {});
    ~Manager(); ///< stops
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    /// Throws std::system_error when the place is taken. The port stays the same over restarts.
    void start();
    void stop();

    [[nodiscard]] std::uint16_t port() const;
    /// What a client configures to get the hub that listens on `hubPort`: "address:hubPort".
    [[nodiscard]] std::string hostString(std::uint16_t hubPort) const;

    /// The status of every answer from now on, 0 to serve again.
    void answer(int status);
    /// In place of addresses, this text is handed out; an empty one ends that.
    void say(std::string text);
    /// Questions are read, and nothing comes back while it is on.
    void setSilent(bool silent);
    void setDelay(std::chrono::milliseconds delay);
    /// The addresses for a port, in turn from the first.
    void handOut(std::uint16_t hubPort, std::vector<std::string> addresses);

    /// What has been asked since the start or the last call of `forget`, in order.
    [[nodiscard]] std::vector<Question> questions() const;
    void forget();
    [[nodiscard]] bool waitForQuestions(std::size_t count,
                                        std::chrono::milliseconds deadline = std::chrono::seconds(10)) const;

private:
    std::unique_ptr<ManagerEngine> m_engine;
};

} // namespace tivra_sim
