#include "common/Password.h"

#include "common/UsageError.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>

namespace tivra_tools {

namespace {

constexpr const char* kVariable = "TIVRA_PASSWORD";
/// No hub takes one of half that length.
constexpr std::size_t kLongestSecret = 8192;

/// Holds back the signals that end a program, so that the terminal is itself again when they do.
class HeldSignals {
public:
    HeldSignals() {
        sigset_t held;
        sigemptyset(&held);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
            struct sigaction action {};
            if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
                sigaddset(&held, signal);
        }
        pthread_sigmask(SIG_BLOCK, &held, &m_before);
        m_fd = signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    ~HeldSignals() {
        if (m_fd >= 0)
            close(m_fd);
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    /// Waits for something to read. @return false for a signal, which is still to come to the program
    [[nodiscard]] bool waitFor(int fd) const {
        pollfd watched[] = {{m_fd, POLLIN, 0}, {fd, POLLIN, 0}};
        while (poll(watched, 2, -1) < 0)
            if (errno != EINTR)
                return false;
        return watched[0].revents == 0;
    }

private:
    int m_fd = -1;
    sigset_t m_before{};
};

/// The terminal with its echo off for as long as the object lives.
class SilentTerminal {
public:
    SilentTerminal() : m_fd(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
        if (m_fd < 0 || tcgetattr(m_fd, &m_saved) != 0)
            return;
        termios silent = m_saved;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        m_isSilent = tcsetattr(m_fd, TCSAFLUSH, &silent) == 0;
    }
    ~SilentTerminal() {
        if (m_isSilent)
            tcsetattr(m_fd, TCSAFLUSH, &m_saved);
        if (m_fd >= 0)
            close(m_fd);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

    [[nodiscard]] bool isUsable() const { return m_isSilent; }

    void show(const std::string& text) const {
        if (write(m_fd, text.data(), text.size()) < 0)
            throw UsageError("cannot ask for the password: the terminal takes no text");
    }

    /// Nothing when a signal came first.
    [[nodiscard]] std::optional<std::string> readLine(const HeldSignals& signals) const {
        std::string line;
        for (char c = '\0'; signals.waitFor(m_fd);) {
            if (read(m_fd, &c, 1) != 1 || c == '\n' || c == '\r')
                return line;
            line.push_back(c);
        }
        return std::nullopt;
    }

private:
    int m_fd;
    bool m_isSilent = false;
    termios m_saved{};
};

/// Whether others than those who are meant can read or write it: everybody, or the group of a file that is
/// the user's own. Pipes and the like are nobody's.
bool canOthersRead(std::FILE* file) {
    struct stat status {};
    if (fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    const mode_t others = status.st_uid == geteuid() ? S_IRWXG | S_IRWXO : S_IRWXO;
    return (status.st_mode & others) != 0;
}

/// The first line of a file that holds a `what`.
std::string readSecret(const std::string& path, const char* what) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (file != nullptr && canOthersRead(file.get()))
        throw UsageError(fmt::format("others can read the {} file \"{}\"; chmod 600 ends that", what, path));
    std::string secret;
    int c = file == nullptr ? EOF : std::fgetc(file.get());
    if (c == EOF)
        throw UsageError(fmt::format("cannot read a {} from the first line of \"{}\"", what, path));
    for (; c != EOF && c != '\n' && secret.size() < kLongestSecret; c = std::fgetc(file.get()))
        secret.push_back(static_cast<char>(c));
    if (!secret.empty() && secret.back() == '\r')
        secret.pop_back();
    return secret;
}

std::string readFile(const std::string& path) {
    if (path != "-")
        return readSecret(path, "password");
    std::string password;
    if (!std::getline(std::cin, password))
        throw UsageError("cannot read a password from standard input");
    if (!password.empty() && password.back() == '\r')
        password.pop_back();
    return password;
}

std::optional<std::string> ask(const std::string& user) {
    std::optional<std::string> password;
    {
        const HeldSignals signals;
        const SilentTerminal terminal;
        if (!terminal.isUsable())
            return std::nullopt;
        terminal.show(fmt::format("Password of {}: ", user));
        password = terminal.readLine(signals);
        terminal.show("\n");
    }
    // Here a signal that came has ended the program, unless the program wants to do that itself.
    if (!password)
        throw UsageError("interrupted while asking for the password");
    return password;
}

} // namespace

std::string readToken(const std::string& path) {
    std::string token = readSecret(path, "token");
    const auto isOfTokens = [](char c) { return c > ' ' && c <= '~'; };
    if (token.empty() || !std::all_of(token.begin(), token.end(), isOfTokens))
        throw UsageError(
            fmt::format("the token in the first line of \"{}\" is empty, or holds a space or what "
                        "isn't ASCII",
                        path));
    return token;
}

std::string obtainPassword(const std::string& user, const std::string& passwordFile) {
    std::string password;
    if (!passwordFile.empty()) {
        password = readFile(passwordFile);
    } else if (const char* value = std::getenv(kVariable); value != nullptr) {
        password = value;
    } else if (const std::optional<std::string> answer = ask(user)) {
        password = *answer;
    } else {
        throw UsageError(
            fmt::format("no password for user \"{}\": set {}, name a file with --password-file, or "
                        "start from a terminal to be asked",
                        user, kVariable));
    }
    if (password.empty() || password.find_first_of("|\x03") != std::string::npos)
        throw UsageError(
            fmt::format("the password of user \"{}\" is empty or holds \"|\" or the byte 03", user));
    return password;
}

} // namespace tivra_tools
