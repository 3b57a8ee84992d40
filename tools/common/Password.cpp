#include "common/Password.h"

#include "common/UsageError.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>

namespace tivra_tools {

namespace {

constexpr const char* kVariable = "TIVRA_PASSWORD";

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

    [[nodiscard]] std::string readLine() const {
        std::string line;
        char c = '\0';
        while (read(m_fd, &c, 1) == 1 && c != '\n' && c != '\r')
            line.push_back(c);
        return line;
    }

private:
    int m_fd;
    bool m_isSilent = false;
    termios m_saved{};
};

std::string readFile(const std::string& path) {
    std::string password;
    if (path == "-") {
        if (!std::getline(std::cin, password))
            throw UsageError("cannot read a password from standard input");
    } else {
        std::ifstream file(path);
        if (!std::getline(file, password))
            throw UsageError(fmt::format("cannot read a password from the first line of \"{}\"", path));
        struct stat status {};
        if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & 0077) != 0)
            throw UsageError(
                fmt::format("others can read the password file \"{}\"; chmod 600 ends that", path));
    }
    if (!password.empty() && password.back() == '\r')
        password.pop_back();
    return password;
}

std::optional<std::string> ask(const std::string& user) {
    const SilentTerminal terminal;
    if (!terminal.isUsable())
        return std::nullopt;
    terminal.show(fmt::format("Password of {}: ", user));
    std::string password = terminal.readLine();
    terminal.show("\n");
    return password;
}

} // namespace

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
