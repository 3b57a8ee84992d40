#include "LogSinks.h"

#include "LogFile.h"
#include "LoggedText.h"
#include "LoggerOptions.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <syslog.h>
#include <unistd.h>

namespace tp {

void writeWhole(int fd, const char* text, std::size_t length) noexcept {
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
    if (hasSink(EPF_FILE))
        writeWhole(logFileDescriptor(), line.text(), line.length());
    if (hasSink(EPF_SYSLOG))
        syslog(priority, "%s", line.text());
}

void internal_error(const char* msg) noexcept TP_NO_THREAD_SAFETY_ANALYSIS {
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
