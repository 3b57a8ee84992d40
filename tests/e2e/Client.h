#pragma once

#include "RecordingApp.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

#include <tivra_sim/Hub.h>

/// A hub that serves from its construction on.
struct StartedHub : tivra_sim::Hub {
    explicit StartedHub(tivra_sim::HubConfig configuration = tivra_sim::HubConfig::realistic())
        : Hub(std::move(configuration)) {
        start();
    }
};

/// A hub that carries these sources, and whose user may see them.
tivra_sim::HubConfig hubOf(const std::set<int>& sources);

/// An application with its user and its one session, which talks to hubs without compression. It is the
/// process's only session unless a test makes a second Client on purpose.
class Client : public RecordingApp {
public:
    struct Options {
        explicit Options(std::vector<std::string> hostTexts = {}) : hosts(std::move(hostTexts)) {}

        std::vector<std::string> hosts;
        std::string user = "demo";
        std::string password = "demo";
        std::string language;
        bool registerHandler = true;
    };

    explicit Client(Options options);
    explicit Client(const std::string& host) : Client(Options({host})) {}
    explicit Client(const tivra_sim::Hub& hub) : Client(hub.hostString()) {}
    ~Client() override;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    tivra::Session& session() { return *m_session; }
    tivra::UserInfo& user() { return *m_user; }
    tivra::ConnectionConfig& connections() { return m_session->getConnectionConfig(); }
    tivra::SessionConfig& settings() { return m_session->getSessionConfig(); }
    tivra::HostConfig& host(const std::string& text) { return connections().getHostConfig(text); }

    /// Starts the session and gives the reason; `isStarted` tells the result.
    std::string start();
    bool isStarted = false;
    /// Starts and waits until the application has heard of it.
    bool startAndWait();

    /// Stops the session, and gives how long that took.
    std::chrono::milliseconds timedStop();

    using Field = std::pair<int, std::string>;
    /// Sends a request; source 0 and an empty symbol are left out.
    std::int64_t send(tivra::Commands command, int source = 0, const std::string& symbol = {},
                      const std::vector<Field>& more = {});
    /// Sends it and waits for its end; gives the status, or MAX when there was none.
    int ask(tivra::Commands command, int source = 0, const std::string& symbol = {},
            const std::vector<Field>& more = {});
    static constexpr int NO_ANSWER = 99999;

    /// What the library has logged so far.
    std::string log() const;
    bool waitForLog(const std::string& text) const;
    /// Gives up the session (or the user) before the client's end.
    void destroySession();
    void destroyUser();
    /// Asks to destroy the user under a live session, which the library refuses.
    void destroyUserTooEarly() { tivra::APIFactory::getInstance()->destroyUserInfo(*m_user); }

private:
    std::string m_logFile;
    tivra::UserInfo* m_user = nullptr;
    tivra::Session* m_session = nullptr;
};
