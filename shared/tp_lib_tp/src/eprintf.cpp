#include <tp/eprintf.h>

#include "ErrnoKept.h"
#include "LogFile.h"
#include "LogLine.h"
#include "LogRoute.h"
#include "LogSinks.h"
#include "LoggerDump.h"
#include "LoggerMutex.h"
#include "LoggerOptions.h"
#include "PacedLines.h"
#include "RepeatTable.h"

#include <tp/Clock.h>

#include <cstdarg>
#include <cstdlib>
#include <memory>
#include <new>
#include <syslog.h>

namespace tp {

namespace {

std::atomic<bool> s_isStarted{false}; ///< eprintf_init() has been called

__attribute__((format(printf, 2, 0))) void logLine(LineRequest request, const char* fmt,
                                                   va_list args) noexcept {
    const LoggerLock lock;
    if (request.level >= EPF_ALWAYS_CRIT) {
        request.level -= EPF_ALWAYS_CRIT;
    } else {
        if (hasOption(EPF_SUPPRESS) && isRepeat(request.file, request.line))
            return;
        if (!passesPace(request))
            return;
    }
    writeLine(request, fmt, args);
}

__attribute__((format(printf, 2, 3))) void logDump(LineRequest request, const char* fmt, ...) noexcept {
    if (!isLineWanted(request.level, request.file))
        return;
    request.isDump = true;
    va_list args;
    va_start(args, fmt);
    const LoggerLock lock;
    writeLine(request, fmt, args);
    va_end(args);
}

} // namespace

void eprintf_mute_until_init() {
    if (!s_isStarted.load(std::memory_order_acquire))
        eprintf_ctrl(EPF_ENABLE, EPF_MUTE);
}

bool eprintf_init(logsink_t sink, loglvl_t lvl, const char* format, ...) {
    const ErrnoKept errnoKept;
    s_isStarted.store(true, std::memory_order_release);
    eprintf_ctrl(EPF_DEFAULT, EPF_NOOPTIONS);
    eprintf_set_pacing(true);
    const LoggerLock lock;
    eprintf_sink = sink;
    if ((sink & EPF_SYSLOG) != 0) // which adds its own
        eprintf_opts = static_cast<unsigned char>(eprintf_opts & ~(EPF_TIMESTAMP | EPF_FILEINFO));
    eprintf_loglvl = lvl;
    if (!allocateBuffer()) {
        internal_error("eprintf library error #1 in eprintf_init()\n");
        return false;
    }
    va_list args;
    va_start(args, format);
    const char* const prefix = setPrefix(format, args);
    va_end(args);
    if ((sink & EPF_SYSLOG) != 0)
        openlog(prefix, LOG_PID, LOG_LOCAL0);
    closeLogFile();
    const bool isReady = (sink & EPF_FILE) == 0 || openLogFile();
    registerDumpAtExit();
    return isReady;
}

void real_eprintf(loglvl_t lvl, const char* file, int line, const char* func, const char* fmt, ...) {
    if (!isLineWanted(lvl, file))
        return;
    const ErrnoKept errnoKept;
    va_list args;
    va_start(args, fmt);
    logLine({"real_eprintf", lvl, file, line, func, nullptr}, fmt, args);
    va_end(args);
}

void real_eperror(loglvl_t lvl, const char* file, int line, const char* func, int error, const char* fmt,
                  ...) {
    if (!isLineWanted(lvl, file))
        return;
    const ErrnoKept errnoKept;
    va_list args;
    va_start(args, fmt);
    logLine({"real_eperror", lvl, file, line, func, &error}, fmt, args);
    va_end(args);
}

void eprintf_cleanup() {
    const ErrnoKept errnoKept;
    if (std::getenv("EPRINTF_CLEANUP_DUMP") != nullptr) {
        const std::unique_ptr<char[]> dump(new (std::nothrow) char[kDumpSize]);
        if (dump != nullptr) {
            eprintf_dump(dump.get(), kDumpSize);
            logDump({__func__, EPF_INFO, __FILE__, __LINE__, __func__, nullptr}, "%s() eprintf_dump(...)\n%s",
                    __func__, dump.get());
        }
    }
    const LoggerLock lock;
    reportRepeats(Clock::monotonic(), true);
    freeBuffer();
    closeLogFile();
}

} // namespace tp
