// liblnkapi64.so for tests and demonstrations: it asks the simulator's connection managers, see
// tivra_sim/Manager.h. Never installed.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#define LNK_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

constexpr int kNotAManager = -122;
constexpr int kConnectionRefused = -113;
constexpr int kOutOfTime = -114; // what the library calls every trouble with sockets
constexpr int kClosedByServer = -118;
constexpr int kInvalidParam = -111;

std::atomic<int> g_timeLimit{5000}; // milliseconds

class Question {
public:
    Question() : m_end(std::chrono::steady_clock::now() + std::chrono::milliseconds(g_timeLimit)) {}
    ~Question() {
        if (m_socket >= 0)
            ::close(m_socket);
    }
    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    int dial(const std::string& address, unsigned short port) {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(port);
        if (inet_pton(AF_INET, address.c_str(), &place.sin_addr) != 1)
            return kInvalidParam;
        m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (m_socket < 0)
            return kOutOfTime;
        const auto* generic = reinterpret_cast<const sockaddr*>(&place);
        if (::connect(m_socket, generic, sizeof place) != 0 && errno != EINPROGRESS)
            return kConnectionRefused;
        if (!wait(POLLOUT))
            return kOutOfTime;
        int error = 0;
        socklen_t length = sizeof error;
        ::getsockopt(m_socket, SOL_SOCKET, SO_ERROR, &error, &length);
        return error == 0 ? 0 : kConnectionRefused;
    }
    int ask(const std::string& text, std::string& answer) {
        ::send(m_socket, text.data(), text.size(), MSG_NOSIGNAL);
        while (answer.find('\n') == std::string::npos) {
            if (!wait(POLLIN))
                return kOutOfTime;
            char bytes[512];
            const ssize_t got = ::recv(m_socket, bytes, sizeof bytes, 0);
            if (got <= 0)
                return kClosedByServer;
            answer.append(bytes, static_cast<std::size_t>(got));
        }
        answer.resize(answer.find('\n'));
        return 0;
    }

private:
    bool wait(short event) const {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(m_end - std::chrono::steady_clock::now());
        pollfd watched{m_socket, event, 0};
        return ::poll(&watched, 1, static_cast<int>(std::max<long long>(left.count(), 0))) > 0;
    }

    std::chrono::steady_clock::time_point m_end;
    int m_socket = -1;
};

/// A text as one line of a question.
std::string line(const char* text) {
    std::string result = text == nullptr ? "" : text;
    std::replace(result.begin(), result.end(), '\n', ' ');
    return result + '\n';
}

} // namespace

LNK_EXPORT int LnkSetLogListener(void (*)(const char*), int) {
    return 0;
}

LNK_EXPORT int LnkInitializeEx2(void*, void*) {
    return 0;
}

LNK_EXPORT int LnkSetConnectionTimeout(int milliseconds) {
    if (milliseconds > 0)
        g_timeLimit = milliseconds;
    return 0;
}

LNK_EXPORT int LnkGetServerIPFromCMEx(const char* managerAddr, int, const char* user, const char* password,
                                      int, char* out, int size) {
    const char* port = std::getenv("TIVRA_SIM_MANAGER_PORT");
    if (port == nullptr || managerAddr == nullptr)
        return kNotAManager;
    const std::string place(managerAddr);
    Question question;
    int status =
        question.dial(place.substr(0, place.rfind(':')), static_cast<unsigned short>(std::atoi(port)));
    std::string answer;
    if (status == 0)
        status = question.ask(line(managerAddr) + line(user) + line(password), answer);
    if (status != 0)
        return status;
    const auto read = std::from_chars(answer.data(), answer.data() + answer.size(), status);
    if (read.ptr != answer.data() + answer.size())
        std::snprintf(out, static_cast<std::size_t>(size), "%s", read.ptr + 1);
    return status;
}

LNK_EXPORT void LnkCleanup() {}
