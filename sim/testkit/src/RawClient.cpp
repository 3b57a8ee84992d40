#include "tivra_testkit/RawClient.h"

#include <array>
#include <cerrno>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <tivra_sim/Tokens.h>

namespace tivra_testkit {

namespace token = tivra_sim::token;

RawClient::RawClient(std::uint16_t port) : m_fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close();
        throw std::runtime_error("the hub does not accept a connection");
    }
}

RawClient::~RawClient() {
    close();
}

void RawClient::close() {
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

void RawClient::sendBytes(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0)
            throw std::runtime_error("the hub has gone");
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void RawClient::send(std::string_view text) {
    sendBytes(tivra_sim::encodeFrame(text));
}

std::string RawClient::readSome(Milliseconds deadline) {
    pollfd watched{m_fd, POLLIN, 0};
    if (::poll(&watched, 1, static_cast<int>(deadline.count())) <= 0)
        return {};
    std::array<char, 65536> bytes;
    const ssize_t count = ::recv(m_fd, bytes.data(), bytes.size(), 0);
    m_ended = count <= 0;
    m_wasReset = count < 0 && errno == ECONNRESET;
    return count > 0 ? std::string(bytes.data(), static_cast<std::size_t>(count)) : std::string();
}

std::string RawClient::readToEnd() {
    std::string all;
    while (!m_ended) {
        const std::string some = readSome();
        if (some.empty() && !m_ended)
            throw std::runtime_error("the stream does not end");
        all += some;
    }
    return all;
}

std::optional<std::string> RawClient::next(Milliseconds deadline) {
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

std::vector<std::string> RawClient::ask(const std::string& text) {
    send(text);
    const std::string tag(tivra_sim::findValue(text, token::TAG));
    std::vector<std::string> bodies;
    for (;;) {
        const std::optional<std::string> body = next();
        if (!body)
            throw std::runtime_error("no answer to " + text);
        if (tivra_sim::findValue(*body, token::TAG) != tag)
            continue;
        bodies.push_back(*body);
        bool hasStatus = false;
        static_cast<void>(tivra_sim::findValue(*body, token::STATUS, &hasStatus));
        if (hasStatus)
            return bodies;
    }
}

int RawClient::statusOf(const std::string& text) {
    return std::stoi(std::string(tivra_sim::findValue(ask(text).back(), token::STATUS)));
}

void RawClient::logIn(bool isCompressed) {
    if (isCompressed)
        expectCompression();
    ask(std::string("5026=1|5022=LoginUser|5028=demo|5029=demo|5053=V1.7.0.1|5129=C++|5128=Linux|13265=") +
        (isCompressed ? "1" : "0"));
}

void RawClient::expectCompression() {
    m_inflater = std::make_unique<Inflater>();
}

std::string RawClient::inflated(const std::string& bytes) {
    return m_inflater ? (*m_inflater)(bytes) : bytes;
}

} // namespace tivra_testkit
