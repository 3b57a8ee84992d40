#include "ManagerEngine.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>

namespace tivra_sim {

namespace {

constexpr std::size_t kLongestQuestion = 4096;
constexpr std::chrono::milliseconds kForGood{-1};

// Statuses of the managers' client library.
constexpr int kWrongUsernameOrPassword = -7;
constexpr int kServerNotAvailable = -9;

/// Cuts the first line off a text.
std::string takeLine(std::string& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string line = text.substr(0, end);
    text.erase(0, end + 1);
    return line;
}

Manager::Question questionOf(const std::string& place, const std::string& user) {
    Manager::Question question;
    const std::size_t colon = std::min(place.rfind(':'), place.size());
    question.address = place.substr(0, colon);
    question.user = user;
    const std::string port = place.substr(std::min(colon + 1, place.size()));
    std::from_chars(port.data(), port.data() + port.size(), question.hubPort);
    return question;
}

} // namespace

void ManagerEngine::start() {
    if (m_thread.joinable())
        return;
    std::uint16_t port = m_config.port;
    if (m_place.get() < 0)
        m_place = holdPort(m_config.address, port);
    m_listener = listenOn(m_config.address, port);
    m_end = checked(::eventfd(0, EFD_CLOEXEC), "cannot make an event descriptor");
    use([port](ManagerEngine& engine) { engine.m_config.port = port; });
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    m_thread = std::thread([this] { serve(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void ManagerEngine::stop() {
    if (!m_thread.joinable())
        return;
    ::eventfd_write(m_end.get(), 1);
    m_thread.join();
    m_listener.reset();
    m_end.reset();
}

bool ManagerEngine::waitForQuestions(std::size_t count, std::chrono::milliseconds deadline) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_asked.wait_for(lock, deadline, [&] { return m_questions.size() >= count; });
}

bool ManagerEngine::waitReadable(int fd, std::chrono::milliseconds limit) const {
    std::array<pollfd, 2> watched{{{m_end.get(), POLLIN, 0}, {fd, POLLIN, 0}}};
    return ::poll(watched.data(), watched.size(), static_cast<int>(limit.count())) > 0 &&
           watched[0].revents == 0;
}

void ManagerEngine::serve() {
    while (waitReadable(m_listener.get(), kForGood)) {
        const Descriptor client(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (client.get() >= 0)
            serveClient(client);
    }
}

void ManagerEngine::serveClient(const Descriptor& client) {
    const std::optional<std::string> question = readQuestion(client);
    if (!question)
        return;
    const std::optional<std::string> answer = answerTo(*question);
    // Whoever keeps silent waits for the client to lose its patience.
    const std::chrono::milliseconds pause =
        answer ? use([](ManagerEngine& engine) { return engine.m_config.delay; }) : kForGood;
    if (pause.count() != 0 && waitReadable(client.get(), pause))
        return;
    if (answer)
        ::send(client.get(), answer->data(), answer->size(), MSG_NOSIGNAL);
}

std::optional<std::string> ManagerEngine::readQuestion(const Descriptor& client) {
    std::string question;
    while (std::count(question.begin(), question.end(), '\n') < 3) {
        if (question.size() > kLongestQuestion || !waitReadable(client.get(), kForGood))
            return std::nullopt;
        std::array<char, 512> bytes;
        const ssize_t got = ::recv(client.get(), bytes.data(), bytes.size(), 0);
        if (got <= 0)
            return std::nullopt;
        question.append(bytes.data(), static_cast<std::size_t>(got));
    }
    return question;
}

std::optional<std::string> ManagerEngine::answerTo(const std::string& question) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string rest = question;
    const std::string place = takeLine(rest);
    const std::string user = takeLine(rest);
    const std::string password = takeLine(rest);
    m_questions.push_back(questionOf(place, user));
    m_asked.notify_all();
    if (m_isSilent)
        return std::nullopt;
    const auto known = m_config.users.find(user);
    int status = m_config.status;
    if (status == 0 && !m_config.users.empty() &&
        (known == m_config.users.end() || known->second != password))
        status = kWrongUsernameOrPassword;
    std::string text = m_text;
    if (status == 0 && text.empty()) {
        const std::uint16_t port = m_questions.back().hubPort;
        const std::vector<std::string>& addresses = m_config.hubs[port];
        text = addresses.empty() ? m_config.otherHubs : addresses[m_turns[port]++ % addresses.size()];
        if (text.empty())
            status = kServerNotAvailable;
    }
    return std::to_string(status) + ' ' + text + '\n';
}

} // namespace tivra_sim
