#include "LogSinks.h"

#include "LogFile.h"
#include "LoggedText.h"
#include "LoggerOptions.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <syslog.h>
#include <unistd.h>

namespace tp {

namespace {

/// While it lives, a write of this thread to a pipe that nobody reads fails and does nothing else: what the
/// process does about SIGPIPE is the application's, and a line of the log must not end it.
class BrokenPipesFail {
public:
    BrokenPipesFail() noexcept {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        sigset_t pending;
        m_wasPending = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~BrokenPipesFail() {
        const int error = errno;
        const timespec atOnce{};
        if (error == EPIPE && !m_wasPending)
            sigtimedwait(&m_pipe, nullptr, &atOnce);
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        errno = error;
    }
    BrokenPipesFail(const BrokenPipesFail&) = delete;
    BrokenPipesFail& operator=(const BrokenPipesFail&) = delete;

private:
    sigset_t m_pipe;
    sigset_t m_before;
    bool m_wasPending;
};

} // namespace

void writeWhole(int fd, const char* text, std::size_t length) noexcept {
    const BrokenPipesFail guard;
    ssize_t result = 0;
    do
        result = ::write(fd, text, length);
    while (result < 0 && errno == EINTR);
}

void writeToSinks(const BoundedText& line, int priority) noexcept {
    if (hasSink(EPF_STDOUT))
        writeWhole(STDOUT_FILENO, line.text(), line.length());
    if (hasSink(EPF_STDERR))
        writeWhole(STDERR_FILENO, line.text(), line.length());
    if (hasSink(EPF_FILE)) {
        limitLogFile(line.length());
        writeWhole(logFileDescriptor(), line.text(), line.length());
    }
    if (hasSink(EPF_SYSLOG))
        syslog(priority, "%s", line.text());
}

void internal_error(const char* msg) noexcept TP_NO_THREAD_SAFETY_ANALYSIS {
    const BrokenPipesFail guard;
    FILE* const file = logFile();
    if (hasSink(EPF_SYSLOG))
        syslog(LOG_ERR, "%s", msg);
    if (hasSink(EPF_STDOUT))
        std::fputs(msg, stdout);
    if (hasSink(EPF_STDERR) || (hasSink(EPF_FILE) && file == nullptr))
        std::fputs(msg, stderr);
    if (hasSink(EPF_FILE) && file != nullptr) {
        std::fputs(msg, file);
        std::fflush(file); // lines are written past the stream's buffer
    }
}

void internal_errorf(const char* fmt, ...) noexcept {
    char msg[2048];
    BoundedText text(msg, sizeof msg - 1); // one byte stays for the newline
    va_list args;
    va_start(args, fmt);
    text.vappendCut(fmt, args);
    va_end(args);
    text.removeTrailingNewlines();
    if (!makeLoggable(text, 0))
        return;
    text.addRoom(1);
    text.append("\n");
    internal_error(msg);
}

} // namespace tp
