#include "SendResults.h"

#include "nats/NatsInbox.h"

#include "support/Ports.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

using namespace tivra_bus;
using Outcome = SendResult::Outcome;

namespace {

/// A server that takes one connection, acknowledges the first of two messages and closes.
class DyingServer : public ClosedPort {
public:
    DyingServer() {
        listen(1);
        m_thread = std::thread([this] { serve(); });
    }
    ~DyingServer() { m_thread.join(); }

private:
    void serve() {
        m_fd = ::accept(m_socket, nullptr, nullptr);
        send(
            "INFO {\"server_id\":\"S\",\"version\":\"2.9.10\",\"headers\":true,\"max_payload\":1048576}\r\n");
        readUntil("PING\r\n");
        send("PONG\r\n");
        readUntil("second\r\n");
        send("MSG " + wordOf("PUB ", 2) + ' ' + wordOf("SUB ", 2) +
             " 22\r\n{\"stream\":\"S\",\"seq\":7}\r\n");
        // What hasn't been read at a close would take the answer with it.
        ::shutdown(m_fd, SHUT_WR);
        for (char byte = 0; ::recv(m_fd, &byte, 1, 0) > 0;) {
        }
        ::close(m_fd);
    }
    void send(const std::string& text) const {
        EXPECT_EQ(::send(m_fd, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }
    void readUntil(const std::string& end) {
        char bytes[4096];
        while (m_text.find(end) == std::string::npos) {
            const ssize_t size = ::recv(m_fd, bytes, sizeof bytes, 0);
            if (size <= 0)
                return;
            m_text.append(bytes, static_cast<std::size_t>(size));
        }
    }
    /// Of the first line of that kind.
    [[nodiscard]] std::string wordOf(const std::string& kind, int number) const {
        std::istringstream line(m_text.substr(m_text.find(kind)));
        std::string word;
        for (int i = 0; i <= number; ++i)
            line >> word;
        return word;
    }

    std::string m_text;
    int m_fd = -1;
    std::thread m_thread;
};

} // namespace

TEST(NatsInbox, AnAnswerThatHasComeBeforeALossCounts) {
    DyingServer server;
    EngineOptions options;
    options.url = "nats://" + server.hostString();
    const NatsConnection connection(natsAddressOf(options));
    NatsInbox inbox(connection, std::chrono::seconds(60));
    const auto listener = std::make_shared<Results>();
    inbox.send("S.first", "first", nullptr, 0, {listener, 1});
    inbox.send("S.second", "second", nullptr, 0, {listener, 2});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (connection.losses() == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    ASSERT_EQ(connection.losses(), 1U);
    std::vector<NatsMessage> used;
    inbox.collect(true, used);
    const std::vector<std::pair<std::uint64_t, Outcome>> wanted{{1, Outcome::Stored}, {2, Outcome::Failed}};
    EXPECT_EQ(listener->results, wanted);
}
