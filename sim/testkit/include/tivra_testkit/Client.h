#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <tivra.h>
#include <tivra_sim/Hub.h>

#include "tivra_testkit/RecordingApp.h"

namespace tivra_testkit {

/// An application with a user and a session of its own, which talks to hubs without compression unless told
/// otherwise. It initialises the library when it is made and uninitialises it when it goes; use one at a
/// time, unless the test is about several.
///
///     tivra_sim::Hub hub;
///     hub.start();
///     tivra_testkit::Client client(hub);
///     ASSERT_TRUE(client.startAndWait());
///     EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
///     EXPECT_FALSE(client.messages().front().field(101).empty());
class Client : public RecordingApp {
public:
    struct Options {
        explicit Options(std::vector<std::string> hostTexts = {}) : hosts(std::move(hostTexts)) {}

        std::vector<std::string> hosts; ///< as ConnectionConfig::getHostConfig takes them
        std::string user = "demo";
        std::string password = "demo";
        std::string language;
        bool registerHandler = true; ///< for messages
    };

    explicit Client(Options options);
    explicit Client(const std::string& host) : Client(Options({host})) {}
    explicit Client(const tivra_sim::Hub& hub) : Client(hub.hostString()) {}
    ~Client() override;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Whether a client that goes prints the library's log to the standard error, for instance
    /// `[] { return testing::Test::HasFailure(); }`. For all clients of the process; set it before the first.
    static void printLogIf(std::function<bool()> hasFailed);

    [[nodiscard]] tivra::Session& session() { return *m_session; }
    [[nodiscard]] tivra::UserInfo& user() { return *m_user; }
    tivra::ConnectionConfig& connections() { return m_session->getConnectionConfig(); }
    tivra::SessionConfig& settings() { return m_session->getSessionConfig(); }
    tivra::HostConfig& host(const std::string& text) { return connections().getHostConfig(text); }

    /// Starts the session and returns the reason; `isStarted` has the result.
    std::string start();
    bool isStarted = false;
    /// Starts it and waits until the application has been told that it is established.
    [[nodiscard]] bool startAndWait();

    /// Stops the session; returns how long that took, and the longest of all times when `stop` failed.
    std::chrono::milliseconds timedStop();

    using Field = SeenMessage::Field;
    /// Sends a request and returns its tag. Source 0 and an empty symbol are left out.
    std::int64_t send(tivra::Commands command, int source = 0, const std::string& symbol = {},
                      const std::vector<Field>& more = {});
    /// Sends it and waits for its end; returns the status, or NO_ANSWER.
    int ask(tivra::Commands command, int source = 0, const std::string& symbol = {},
            const std::vector<Field>& more = {});
    static constexpr int NO_ANSWER = 99999;

    /// What the library has logged so far.
    [[nodiscard]] std::string log() const;
    bool waitForLog(const std::string& text) const;

    /// Gives up the session, or the user, before the client goes.
    void destroySession();
    void destroyUser();
    /// Asks to destroy the user under a live session, which the library refuses.
    void destroyUserTooEarly() { tivra::APIFactory::getInstance()->destroyUserInfo(*m_user); }

private:
    std::string m_logFile;
    tivra::UserInfo* m_user = nullptr;
    tivra::Session* m_session = nullptr;
};

} // namespace tivra_testkit
