#include "Stunnel.h"

#include "TlsPapers.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tivra_bench {
namespace {

constexpr const char* kProgram = "/usr/bin/stunnel4";

sockaddr_in addressOf(const char* host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, host, &address.sin_addr);
    return address;
}

std::uint16_t freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = addressOf("127.0.0.1", 0);
    socklen_t size = sizeof address;
    const bool isBound = bind(fd, reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
                         getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    close(fd);
    if (!isBound)
        throw std::runtime_error("no port for stunnel");
    return ntohs(address.sin_port);
}

pid_t startWith(const std::string& file, const std::string& settings) {
    std::ofstream(file) << "foreground = yes\npid =\ndebug = 0\n" << settings;
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execl(kProgram, kProgram, file.c_str(), nullptr);
        _exit(1);
    }
    if (pid < 0)
        throw std::runtime_error("no process for stunnel");
    return pid;
}

void waitForListener(const char* host, std::uint16_t port) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (;;) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in address = addressOf(host, port);
        const bool isThere = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(fd);
        if (isThere)
            return;
        if (std::chrono::steady_clock::now() > end)
            throw std::runtime_error("stunnel doesn't start");
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // nothing tells when it listens
    }
}

} // namespace

bool Stunnel::isThere() {
    return access(kProgram, X_OK) == 0;
}

Stunnel::Stunnel(const TlsPapers& papers, std::uint16_t hubPort) {
    const std::uint16_t between = freePort();
    const std::string hub = std::to_string(hubPort);
    const std::string middle = std::to_string(between);
    m_hub = startWith(papers.folder() + "/hub.conf", "[hub]\naccept = 127.0.0.1:" + middle +
                                                         "\nconnect = 127.0.0.1:" + hub +
                                                         "\ncert = " + papers.hub() + "\n");
    m_reader =
        startWith(papers.folder() + "/reader.conf",
                  "[reader]\nclient = yes\naccept = 127.0.0.2:" + hub + "\nconnect = 127.0.0.1:" + middle +
                      "\nverifyChain = yes\nCAfile = " + papers.issuer() + "\n");
    waitForListener("127.0.0.1", between);
    waitForListener("127.0.0.2", hubPort);
}

Stunnel::~Stunnel() {
    for (const pid_t pid : {m_reader, m_hub}) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

double Stunnel::processorSeconds() const {
    std::ifstream file("/proc/" + std::to_string(m_reader) + "/stat");
    std::string text;
    std::getline(file, text);
    // The name in brackets may hold anything; user and system time are the 12th and 13th after it.
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string skipped;
    for (int i = 0; i < 11; ++i)
        fields >> skipped;
    double user = 0.0;
    double system = 0.0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

} // namespace tivra_bench
