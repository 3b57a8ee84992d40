#include "Process.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <pty.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

bool comesTrue(const std::function<bool()>& isSo, std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (!isSo()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2)); // between two looks
    }
    return true;
}

std::string textOf(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

Process::Process(const std::string& folder, const std::string& line, Place place) {
    static int count = 0;
    m_output = folder + "/.out" + std::to_string(++count);
    m_error = folder + "/.err" + std::to_string(count);
    const std::string redirected = "exec < /dev/null > " + m_output + " 2> " + m_error + "; " + line;
    const bool isOnTerminal = place == Place::Terminal;
    m_pid = isOnTerminal ? forkpty(&m_terminal, nullptr, nullptr, nullptr) : fork();
    if (m_pid < 0)
        throw std::runtime_error("cannot start " + line);
    if (m_pid == 0) {
        if (!isOnTerminal)
            setsid(); // without the terminal of whoever runs the tests
        execl("/bin/sh", "sh", "-c", (isOnTerminal ? line : redirected).c_str(), nullptr);
        _exit(127);
    }
    if (isOnTerminal)
        m_screen = std::thread([this] {
            std::ofstream screen(m_output, std::ios::binary);
            char bytes[4096];
            // It reads as an error once the program has closed it.
            for (ssize_t length = 0; (length = read(m_terminal, bytes, sizeof bytes)) > 0;)
                screen.write(bytes, length).flush();
        });
}

Process::~Process() {
    if (!hasEnded()) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    if (m_screen.joinable())
        m_screen.join();
    if (m_terminal >= 0)
        close(m_terminal);
}

void Process::signal(int number) const {
    kill(m_pid, number);
}

void Process::type(const std::string& text) const {
    if (write(m_terminal, text.data(), text.size()) < 0)
        throw std::runtime_error("cannot type");
}

bool Process::waitFor(const Predicate& predicate, const std::string& file) {
    return comesTrue([&] { return predicate(textOf(file)) || hasEnded(); }) && predicate(textOf(file));
}

int Process::waitForEnd(std::chrono::milliseconds time) {
    if (!comesTrue([this] { return hasEnded(); }, time))
        return -1;
    return WIFEXITED(*m_status) ? WEXITSTATUS(*m_status) : 1000 + WTERMSIG(*m_status);
}

bool Process::hasEnded() {
    int status = 0;
    if (!m_status && waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_status = status;
        if (m_screen.joinable())
            m_screen.join();
    }
    return m_status.has_value();
}
