#include "LogLine.h"

#include "LogFile.h"
#include "LogRoute.h"
#include "LogSinks.h"
#include "LoggedText.h"
#include "LoggerOptions.h"

#include <tp/Clock.h>
#include <tp/logRoute.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <syslog.h>
#include <unistd.h>

namespace tp {

namespace {

struct LevelLook {
    const char* word;
    const char* colour;
    int priority;
};

constexpr LevelLook kLevelLooks[] = {
    {"CRIT: ", "\x1b[01;31m", LOG_CRIT},
    {"WARN: ", "\x1b[01;33m", LOG_WARNING},
    {"INFO: ", "\x1b[01;32m", LOG_INFO},
    {"DBUG: ", "\x1b[01;36m", LOG_DEBUG},
};

constexpr std::size_t EPF_ALLOC_SIZE = 32768;
constexpr std::size_t kPrefixSize = kEprintfNameMax + 1;

constinit std::atomic<bool> s_hasMilliseconds{false};

char eprintf_prefix[kPrefixSize] TP_GUARDED_BY(eprintf_mutex) = "";
char* eprintf_buf TP_GUARDED_BY(eprintf_mutex) = nullptr;
std::size_t eprintf_buf_size TP_GUARDED_BY(eprintf_mutex) = 0;

bool appendTime(BoundedText& text) noexcept TP_REQUIRES(eprintf_mutex) {
    tm local{};
    char stamp[32];
    if (!localNow(local) || std::strftime(stamp, sizeof stamp, "%b %e %H:%M:%S ", &local) == 0)
        return false;
    if (hasSink(EPF_FILE))
        rollLogFile(local);
    if (!s_hasMilliseconds.load(std::memory_order_relaxed))
        return text.append("%s", stamp);
    const double now = Clock::now();
    const int milliseconds = static_cast<int>((now - std::floor(now)) * 1000.0);
    return text.append("%.*s.%03d ", static_cast<int>(std::strlen(stamp)) - 1, stamp, milliseconds);
}

bool appendFileInfo(BoundedText& text, const LineRequest& request) noexcept {
    const char* shown = request.file;
    if (hasOption(EPF_SHORTFILENAME)) {
        const char* slash = std::strrchr(shown, '/');
        shown = slash != nullptr ? slash + 1 : shown;
    }
    return text.append("%s[%d]: ", shown, request.line);
}

// Builds the line, and returns null, or the number of the step that failed.
__attribute__((format(printf, 3, 0))) const char* buildLine(BoundedText& text, const LineRequest& request,
                                                            const char* fmt, va_list args) noexcept
    TP_REQUIRES(eprintf_mutex) {
    const LevelLook& look = kLevelLooks[request.level];
    if (hasOption(EPF_COLOR) && text.room() > 8)
        text.append("%s", look.colour);
    if (hasOption(EPF_TIMESTAMP) && !appendTime(text))
        return "3";
    if (hasSink(EPF_FILE) && !text.append("%s[%d]: ", eprintf_prefix, static_cast<int>(getpid())))
        return "3a";
    if (hasOption(EPF_FILEINFO) && !appendFileInfo(text, request))
        return "4";
    if (hasOption(EPF_FUNCNAME) && !text.append("%s(): ", request.func))
        return "5";
    if (hasOption(EPF_LEVELS))
        text.append("%s", look.word);
    const std::size_t message = text.length();
    if (!text.vappend(fmt, args))
        return "7";
    text.removeTrailingNewlines();
    if (request.error != nullptr && !text.append(": (%d) %s", *request.error, std::strerror(*request.error)))
        return "8";
    if (!request.isDump && !makeLoggable(text, message))
        return "7";
    if (!request.isDump)
        putForCallback(request.level, request.file, text.tail(message), text.length() - message);
    if (request.keeper != nullptr)
        request.keeper->keepText(request.site(), text.tail(message), text.length() - message);
    if (hasOption(EPF_COLOR) && text.room() > 5)
        text.append("\x1b[00m");
    return nullptr;
}

} // namespace

void writeLine(const LineRequest& request, const char* fmt, va_list args) noexcept {
    if (!allocateBuffer()) {
        internal_errorf("eprintf library error #1 in %s()\n", request.caller);
        return;
    }
    BoundedText text(eprintf_buf, eprintf_buf_size - 1); // one byte stays for the newline
    if (const char* step = buildLine(text, request, fmt, args)) {
        internal_errorf("eprintf library error #%s in %s()\n", step, request.caller);
        return;
    }
    text.addRoom(1);
    if (hasSink(EPF_STDOUT | EPF_STDERR | EPF_FILE))
        text.append("\n");
    if (!hasOption(EPF_MUTE)) // else it is the callback's alone
        writeToSinks(text, kLevelLooks[request.level].priority);
}

void writeLinef(const LineRequest& request, const char* fmt, ...) noexcept {
    va_list args;
    va_start(args, fmt);
    writeLine(request, fmt, args);
    va_end(args);
}

void setLogMilliseconds(bool isOn) noexcept {
    s_hasMilliseconds = isOn;
}

bool allocateBuffer() noexcept {
    if (eprintf_buf == nullptr) {
        eprintf_buf = static_cast<char*>(std::calloc(1, EPF_ALLOC_SIZE));
        eprintf_buf_size = eprintf_buf != nullptr ? EPF_ALLOC_SIZE : 0;
    }
    return eprintf_buf != nullptr;
}

void freeBuffer() noexcept {
    std::free(eprintf_buf);
    eprintf_buf = nullptr;
    eprintf_buf_size = 0;
}

const char* setPrefix(const char* format, va_list args) noexcept {
    char shown[4 * kPrefixSize]; // each byte may become four
    BoundedText prefix(shown, kPrefixSize);
    prefix.vappendCut(format, args);
    prefix.addRoom(sizeof shown - kPrefixSize);
    static_cast<void>(makeLoggable(prefix, 0));
    prefix.cutTo(std::min(prefix.length(), kEprintfNameMax));
    std::memcpy(eprintf_prefix, shown, prefix.length() + 1);
    return eprintf_prefix;
}

void dumpPrefix(BoundedText& text) noexcept {
    text.appendCut("%p: static char eprintf_prefix sizeof=%zu \"%s\"\n", address(&eprintf_prefix),
                   sizeof eprintf_prefix, eprintf_prefix);
}

void dumpBuffer(BoundedText& text) noexcept {
    text.appendCut("%p: static char* eprintf_buf sizeof=%zu %p\n", address(&eprintf_buf), sizeof eprintf_buf,
                   address(eprintf_buf));
    text.appendCut("%p: static size_t eprintf_buf_size sizeof=%zu %zu\n", address(&eprintf_buf_size),
                   sizeof eprintf_buf_size, eprintf_buf_size);
}

} // namespace tp
