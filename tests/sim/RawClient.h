#ifndef TIVRA_TESTS_SIM_RAWCLIENT_H
#define TIVRA_TESTS_SIM_RAWCLIENT_H

#include "Inflater.h"
#include "tivra_sim/Hub.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// A client of plain sockets, which sends request texts and reads bodies, bytes, or the end of the stream.
class RawClient {
public:
    using Milliseconds = std::chrono::milliseconds;

    explicit RawClient(const tivra_sim::Hub& hub) : RawClient(hub.port()) {}
    explicit RawClient(std::uint16_t port) : m_fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("the hub does not accept a connection");
    }
    ~RawClient() { close(); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    void close() {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }

    void sendBytes(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t count = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count < 0)
                throw std::runtime_error("the hub has gone");
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
    }
    void send(std::string_view text) { sendBytes(tivra_sim::encodeFrame(text)); }

    /// Bytes as they come: one read. Empty at the end of the stream or after the deadline, which ended()
    /// tells apart.
    std::string readSome(Milliseconds deadline = Milliseconds(10000)) {
        pollfd watched{m_fd, POLLIN, 0};
        if (::poll(&watched, 1, static_cast<int>(deadline.count())) <= 0)
            return {};
        std::array<char, 65536> bytes;
        const ssize_t count = ::recv(m_fd, bytes.data(), bytes.size(), 0);
        m_ended = count <= 0;
        m_wasReset = count < 0 && errno == ECONNRESET;
        return count > 0 ? std::string(bytes.data(), static_cast<std::size_t>(count)) : std::string();
    }

    /// All bytes up to the end of the stream.
    std::string readToEnd() {
        std::string all;
        while (!m_ended) {
            const std::string some = readSome();
            if (some.empty() && !m_ended)
                throw std::runtime_error("the stream does not end");
            all += some;
        }
        return all;
    }

    /// The next body; no value at the end of the stream or after the deadline.
    std::optional<std::string> next(Milliseconds deadline = Milliseconds(10000)) {
        for (;;) {
            std::string_view body;
            const auto result = m_reader.next(body);
            if (result == tivra_sim::FrameReader::Result::Frame)
                return std::string(body);
            if (result == tivra_sim::FrameReader::Result::Invalid)
                throw std::runtime_error("the hub sent no frame: " + m_reader.error());
            const std::string bytes = readSome(deadline);
            if (bytes.empty())
                return std::nullopt;
            m_reader.push(inflated(bytes));
        }
    }

    /// Sends a text and returns the bodies of its tag up to the one with a status.
    std::vector<std::string> ask(const std::string& text) {
        send(text);
        const std::string tag(tivra_sim::findValue(text, tivra_sim::token::TAG));
        std::vector<std::string> bodies;
        for (;;) {
            const std::optional<std::string> body = next();
            if (!body)
                throw std::runtime_error("no answer to " + text);
            if (tivra_sim::findValue(*body, tivra_sim::token::TAG) != tag)
                continue;
            bodies.push_back(*body);
            bool hasStatus = false;
            static_cast<void>(tivra_sim::findValue(*body, tivra_sim::token::STATUS, &hasStatus));
            if (hasStatus)
                return bodies;
        }
    }

    /// The status of a request's answer.
    int statusOf(const std::string& text) {
        return std::stoi(std::string(tivra_sim::findValue(ask(text).back(), tivra_sim::token::STATUS)));
    }

    void logIn(bool isCompressed = false) {
        if (isCompressed)
            expectCompression();
        ask(std::string(
                "5026=1|5022=LoginUser|5028=demo|5029=demo|5053=V1.7.0.1|5129=C++|5128=Linux|13265=") +
            (isCompressed ? "1" : "0"));
    }

    /// From now on bodies come out of one zlib stream.
    void expectCompression() { m_inflater = std::make_unique<Inflater>(); }
    /// What bytes of the stream say.
    std::string inflated(const std::string& bytes) { return m_inflater ? (*m_inflater)(bytes) : bytes; }

    [[nodiscard]] bool ended() const { return m_ended; }
    [[nodiscard]] bool wasReset() const { return m_wasReset; }

private:
    int m_fd;
    bool m_ended = false;
    bool m_wasReset = false;
    tivra_sim::FrameReader m_reader;
    std::unique_ptr<Inflater> m_inflater;
};

/// A hub without records of its own accord, so that a test sees only what it asked for.
inline tivra_sim::HubConfig quietConfig() {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.heartbeat.enabled = false;
    config.hubStatus.enabled = false;
    return config;
}

#endif
