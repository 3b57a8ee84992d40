#include <tp/eprintf.h>

#include "BoundedText.h"
#include "LinePacing.h"
#include "LoggedText.h"

#include <tp/Clock.h>
#include <tp/Mutex.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <pthread.h>
#include <syslog.h>
#include <time.h>
#include <type_traits>
#include <unistd.h>

namespace tp {

namespace {

// The logger's own lock. Not a tp::Mutex: it must be repairable in place, it may be taken while any other
// mutex is held, and nothing is ever taken under it.
class TP_CAPABILITY("mutex") LoggerMutex {
public:
    [[nodiscard]] int tryToLock() noexcept TP_NO_THREAD_SAFETY_ANALYSIS {
        return pthread_mutex_lock(&m_native);
    }
    void nowLocked() const noexcept TP_ASSERT_CAPABILITY(this) {}
    void unlock() noexcept TP_RELEASE() { pthread_mutex_unlock(&m_native); }
    void reinitialize() noexcept { m_native = PTHREAD_MUTEX_INITIALIZER; }
    [[nodiscard]] const pthread_mutex_t& native() const noexcept { return m_native; }

private:
    pthread_mutex_t m_native = PTHREAD_MUTEX_INITIALIZER;
};

// Threads may still log while a host's static destructors run.
static_assert(std::is_trivially_destructible_v<LoggerMutex>);

// One entry of the repeat table; a call site is known by the address of its file's name and its line.
struct repeat_info {
    const char* filePtr;
    std::int32_t line;
    unsigned count;
    time_t last_time;
};

struct LevelLook {
    const char* word;
    const char* colour;
    int priority;
};

constexpr LevelLook levelLooks[] = {
    {"CRIT: ", "\x1b[01;31m", LOG_CRIT},
    {"WARN: ", "\x1b[01;33m", LOG_WARNING},
    {"INFO: ", "\x1b[01;32m", LOG_INFO},
    {"DBUG: ", "\x1b[01;36m", LOG_DEBUG},
};

constexpr std::size_t EPF_ALLOC_SIZE = 32768;
constexpr std::size_t atexitDumpSize = 16328;
constexpr std::size_t nameSize = kEprintfNameMax + 1;
constexpr std::size_t repeatEntries = 32;
// Descriptors below it belong to the standard streams, whatever the host process has done with them.
constexpr int firstUsableDescriptor = 3;

LoggerMutex eprintf_mutex;

// These are also read without the lock.
std::atomic<unsigned char> eprintf_opts{EPF_OPTS_DEFAULTS};
std::atomic<bool> eprintf_paced{true};
std::atomic<int> eprintf_loglvl{EPF_INFO};
std::atomic<int> eprintf_sink{EPF_STDERR};

char eprintf_filename[nameSize] TP_GUARDED_BY(eprintf_mutex) = "eprintflog";
char eprintf_failed_filename[nameSize + 16] TP_GUARDED_BY(eprintf_mutex) = "";
int eprintf_current_file_date TP_GUARDED_BY(eprintf_mutex) = -1;
int eprintf_fd TP_GUARDED_BY(eprintf_mutex) = -1;
FILE* eprintf_file TP_GUARDED_BY(eprintf_mutex) = nullptr;
char eprintf_prefix[nameSize] TP_GUARDED_BY(eprintf_mutex) = "";
char* eprintf_buf TP_GUARDED_BY(eprintf_mutex) = nullptr;
std::size_t eprintf_buf_size TP_GUARDED_BY(eprintf_mutex) = 0;
repeat_info eprintf_info[repeatEntries] TP_GUARDED_BY(eprintf_mutex) = {};
std::size_t eprintf_info_count TP_GUARDED_BY(eprintf_mutex) = 0;
bool eprintf_atexit_registered TP_GUARDED_BY(eprintf_mutex) = false;
LinePacing eprintf_pacing TP_GUARDED_BY(eprintf_mutex);
static_assert(std::is_trivially_destructible_v<LinePacing>);

bool hasOption(logopt_t option) noexcept {
    return (eprintf_opts.load(std::memory_order_relaxed) & option) != 0;
}

bool hasSink(int sinks) noexcept {
    return (eprintf_sink.load(std::memory_order_relaxed) & sinks) != 0;
}

// The logger's own way out: no lock and no buffer. A host's standard output is not ours to write to, so
// what can't go to the file goes to standard error.
void internal_error(const char* msg) noexcept TP_NO_THREAD_SAFETY_ANALYSIS {
    if (hasSink(EPF_SYSLOG))
        syslog(LOG_ERR, "%s", msg);
    if (hasSink(EPF_STDOUT))
        std::fputs(msg, stdout);
    if (hasSink(EPF_STDERR) || (hasSink(EPF_FILE) && eprintf_file == nullptr))
        std::fputs(msg, stderr);
    if (hasSink(EPF_FILE) && eprintf_file != nullptr) {
        std::fputs(msg, eprintf_file);
        std::fflush(eprintf_file); // lines are written past the stream's buffer
    }
}

__attribute__((format(printf, 1, 2))) void internal_errorf(const char* fmt, ...) noexcept {
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

// A logger must not die of the program's memory faults: a mutex that was overwritten is made anew.
void real_eprintf_lock() noexcept TP_ACQUIRE(eprintf_mutex) {
    const int error = eprintf_mutex.tryToLock();
    eprintf_mutex.nowLocked();
    if (error == 0)
        return;
    char contents[sizeof(pthread_mutex_t) + 1] = {};
    std::memcpy(contents, &eprintf_mutex.native(), sizeof(pthread_mutex_t));
    internal_errorf("%s() = %d %s, eprintf_mutex corrupted, contained \"%s\", count=%zu, reinitialized\n",
                    __func__, error, std::strerror(error), contents, eprintf_info_count);
    eprintf_mutex.reinitialize();
    static_cast<void>(eprintf_mutex.tryToLock());
}

void lockBeforeFork() noexcept TP_ACQUIRE(eprintf_mutex) {
    real_eprintf_lock();
}

void unlockAfterFork() noexcept TP_RELEASE(eprintf_mutex) {
    eprintf_mutex.unlock();
}

// A child that is forked while another thread logs must not inherit a lock that nobody will release.
void registerForkHandlers() noexcept {
    pthread_atfork(lockBeforeFork, unlockAfterFork, unlockAfterFork);
}

class TP_SCOPED_CAPABILITY LoggerLock {
public:
    LoggerLock() noexcept TP_ACQUIRE(eprintf_mutex) {
        static pthread_once_t once = PTHREAD_ONCE_INIT;
        pthread_once(&once, registerForkHandlers);
        real_eprintf_lock();
    }
    ~LoggerLock() TP_RELEASE() { eprintf_mutex.unlock(); }
    LoggerLock(const LoggerLock&) = delete;
    LoggerLock& operator=(const LoggerLock&) = delete;
};

// Logging must not disturb the errno of the code that logs.
class ErrnoKept {
public:
    ErrnoKept() noexcept : m_errno(errno) {}
    ~ErrnoKept() { errno = m_errno; }
    ErrnoKept(const ErrnoKept&) = delete;
    ErrnoKept& operator=(const ErrnoKept&) = delete;

private:
    int m_errno;
};

bool localNow(tm& local) noexcept {
    const time_t seconds = static_cast<time_t>(Clock::now());
    return localtime_r(&seconds, &local) != nullptr;
}

bool allocateBuffer() noexcept TP_REQUIRES(eprintf_mutex) {
    if (eprintf_buf == nullptr) {
        eprintf_buf = static_cast<char*>(std::calloc(1, EPF_ALLOC_SIZE));
        eprintf_buf_size = eprintf_buf != nullptr ? EPF_ALLOC_SIZE : 0;
    }
    return eprintf_buf != nullptr;
}

void closeFile() noexcept TP_REQUIRES(eprintf_mutex) {
    if (eprintf_file != nullptr)
        std::fclose(eprintf_file);
    eprintf_file = nullptr;
    eprintf_fd = -1;
}

// Reports once per name, or a log that can't be written would flood standard error.
void reportOpenFailure(const char* name, int error) noexcept TP_REQUIRES(eprintf_mutex) {
    if (std::strcmp(eprintf_failed_filename, name) == 0)
        return;
    std::snprintf(eprintf_failed_filename, sizeof eprintf_failed_filename, "%s", name);
    internal_errorf("eprintf: Unable to open %s - errno = %d: %s\n", name, error, std::strerror(error));
}

// A file that can't be taken for a standard stream of the host, which may have closed its own.
FILE* openForAppending(const char* name) noexcept {
    int fd = ::open(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd >= 0 && fd < firstUsableDescriptor) {
        const int low = fd;
        fd = ::fcntl(low, F_DUPFD_CLOEXEC, firstUsableDescriptor);
        const int error = errno;
        ::close(low);
        errno = error;
    }
    FILE* const file = fd < 0 ? nullptr : ::fdopen(fd, "a");
    if (file == nullptr && fd >= 0)
        ::close(fd);
    return file;
}

void openFile() noexcept TP_REQUIRES(eprintf_mutex) {
    char name[sizeof eprintf_failed_filename];
    BoundedText text(name, sizeof name);
    text.append("%s", eprintf_filename);
    tm local{};
    if (hasOption(EPF_TIMESTAMP) && localNow(local)) {
        char date[16];
        std::strftime(date, sizeof date, "%m%d%Y", &local);
        text.append(".%s", date);
        eprintf_current_file_date = local.tm_yday;
    }
    eprintf_file = openForAppending(name);
    if (eprintf_file == nullptr) {
        eprintf_fd = -1;
        reportOpenFailure(name, errno);
        return;
    }
    eprintf_fd = fileno(eprintf_file);
    eprintf_failed_filename[0] = '\0';
}

// Returns whether the call site has had its line in this second.
bool isRepeat(const char* file, int line) noexcept TP_REQUIRES(eprintf_mutex) {
    const time_t now = static_cast<time_t>(Clock::now());
    for (repeat_info& info : eprintf_info) {
        if (info.filePtr != file || info.line != line)
            continue;
        ++info.count;
        if (info.last_time == now)
            return true;
        info.last_time = now;
        return false;
    }
    eprintf_info[eprintf_info_count++ % repeatEntries] = repeat_info{file, line, 1, now};
    return false;
}

// One line on its way: its call site, its message, and the error that ends it, if any.
struct LineRequest {
    const char* caller; // for the logger's own errors
    int level;
    const char* file;
    int line;
    const char* func;
    const int* error;
    bool isDump = false; // the logger's own text of many lines
    bool isKept = false; // stands for its repetitions
};

LinePacing::Site siteOf(const LineRequest& request) noexcept {
    return {request.file, request.func, request.line, request.level};
}

bool appendTime(BoundedText& text) noexcept TP_REQUIRES(eprintf_mutex) {
    tm local{};
    char stamp[32];
    if (!localNow(local) || std::strftime(stamp, sizeof stamp, "%b %e %H:%M:%S ", &local) == 0)
        return false;
    if (hasSink(EPF_FILE) && local.tm_yday != eprintf_current_file_date) {
        closeFile();
        openFile();
    }
    return text.append("%s", stamp);
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
    const LevelLook& look = levelLooks[request.level];
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
    if (request.isKept)
        eprintf_pacing.keepText(siteOf(request), text.tail(message), text.length() - message);
    if (hasOption(EPF_COLOR) && text.room() > 5)
        text.append("\x1b[00m");
    return nullptr;
}

void writeWhole(int fd, const char* text, std::size_t length) noexcept {
    ssize_t result = 0;
    do
        result = ::write(fd, text, length);
    while (result < 0 && errno == EINTR);
}

void writeToSinks(const BoundedText& line, int priority) noexcept TP_REQUIRES(eprintf_mutex) {
    if (hasSink(EPF_STDOUT))
        writeWhole(STDOUT_FILENO, line.text(), line.length());
    if (hasSink(EPF_STDERR))
        writeWhole(STDERR_FILENO, line.text(), line.length());
    if (hasSink(EPF_FILE))
        writeWhole(eprintf_fd, line.text(), line.length());
    if (hasSink(EPF_SYSLOG))
        syslog(priority, "%s", line.text());
}

bool passesLevel(int level) noexcept {
    if (hasOption(EPF_MUTE) || level < EPF_CRIT || level > EPF_ALWAYS_DBUG)
        return false;
    const int needed = level & 3;
    return needed == EPF_CRIT || eprintf_loglvl.load(std::memory_order_relaxed) >= needed;
}

__attribute__((format(printf, 2, 0))) void writeLine(const LineRequest& request, const char* fmt,
                                                     va_list args) noexcept TP_REQUIRES(eprintf_mutex) {
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
    writeToSinks(text, levelLooks[request.level].priority);
}

__attribute__((format(printf, 2, 3))) void writeLinef(const LineRequest& request, const char* fmt,
                                                      ...) noexcept TP_REQUIRES(eprintf_mutex) {
    va_list args;
    va_start(args, fmt);
    writeLine(request, fmt, args);
    va_end(args);
}

// Writes how often lines have been held back, where that is due or, with `all`, at once.
void reportRepeats(double now, bool all) noexcept TP_REQUIRES(eprintf_mutex) {
    if (!all && !eprintf_pacing.isDue(now))
        return;
    for (LinePacing::Repeats repeats{}; eprintf_pacing.takeDue(now, all, repeats);) {
        const auto& [site, count, shown] = repeats;
        if (!hasOption(EPF_MUTE))
            writeLinef({__func__, site.level, site.file, site.line, site.func, nullptr},
                       "%s (repeated %llu times)", shown, static_cast<unsigned long long>(count));
    }
}

// Whether the line may be written; if not it has been counted. The debug level traces each message on
// purpose, so whoever turns it on gets every line.
bool passesPace(LineRequest& request) noexcept TP_REQUIRES(eprintf_mutex) {
    const double now = Clock::monotonic();
    reportRepeats(now, false);
    if (request.level >= EPF_DBUG || !eprintf_paced.load(std::memory_order_relaxed))
        return true;
    const LinePacing::Verdict verdict = eprintf_pacing.judge(siteOf(request), now);
    request.isKept = verdict == LinePacing::Verdict::WriteAndKeep;
    return verdict != LinePacing::Verdict::Hold;
}

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
    if (!passesLevel(request.level))
        return;
    request.isDump = true;
    va_list args;
    va_start(args, fmt);
    const LoggerLock lock;
    writeLine(request, fmt, args);
    va_end(args);
}

template<class Type>
const void* address(const Type* variable) noexcept {
    return variable;
}

void dumpNames(BoundedText& text) noexcept TP_REQUIRES(eprintf_mutex) {
    text.appendCut("%p: static char eprintf_filename sizeof=%zu \"%s\"\n", address(&eprintf_filename),
                   sizeof eprintf_filename, eprintf_filename);
    text.appendCut("%p: static char eprintf_failed_filename sizeof=%zu \"%s\"\n",
                   address(&eprintf_failed_filename), sizeof eprintf_failed_filename,
                   eprintf_failed_filename);
    text.appendCut("%p: static int eprintf_current_file_date sizeof=%zu %d\n",
                   address(&eprintf_current_file_date), sizeof eprintf_current_file_date,
                   eprintf_current_file_date);
    text.appendCut("%p: static int eprintf_fd sizeof=%zu %d\n", address(&eprintf_fd), sizeof eprintf_fd,
                   eprintf_fd);
    text.appendCut("%p: static FILE* eprintf_file sizeof=%zu %p\n", address(&eprintf_file),
                   sizeof eprintf_file, address(eprintf_file));
    text.appendCut("%p: static char eprintf_prefix sizeof=%zu \"%s\"\n", address(&eprintf_prefix),
                   sizeof eprintf_prefix, eprintf_prefix);
}

void dumpState(BoundedText& text) noexcept TP_REQUIRES(eprintf_mutex) {
    text.appendCut("%p: static logopt_t eprintf_opts sizeof=%zu %u\n", address(&eprintf_opts),
                   sizeof eprintf_opts, static_cast<unsigned>(eprintf_opts.load()));
    text.appendCut("%p: static loglvl_t eprintf_loglvl sizeof=%zu %d\n", address(&eprintf_loglvl),
                   sizeof eprintf_loglvl, eprintf_loglvl.load());
    text.appendCut("%p: static logsink_t eprintf_sink sizeof=%zu %d\n", address(&eprintf_sink),
                   sizeof eprintf_sink, eprintf_sink.load());
    dumpNames(text);
    text.appendCut("%p: static char* eprintf_buf sizeof=%zu %p\n", address(&eprintf_buf), sizeof eprintf_buf,
                   address(eprintf_buf));
    text.appendCut("%p: static size_t eprintf_buf_size sizeof=%zu %zu\n", address(&eprintf_buf_size),
                   sizeof eprintf_buf_size, eprintf_buf_size);
    text.appendCut("%p: static bool eprintf_atexit_registered sizeof=%zu %d\n",
                   address(&eprintf_atexit_registered), sizeof eprintf_atexit_registered,
                   eprintf_atexit_registered ? 1 : 0);
    text.appendCut("%p: static bool eprintf_paced sizeof=%zu %d\n", address(&eprintf_paced),
                   sizeof eprintf_paced, eprintf_paced.load() ? 1 : 0);
    text.appendCut("%p: static LinePacing eprintf_pacing sizeof=%zu sites=%zu\n", address(&eprintf_pacing),
                   sizeof eprintf_pacing, eprintf_pacing.sites());
}

void dumpMutex(BoundedText& text) noexcept {
    const pthread_mutex_t& native = eprintf_mutex.native();
    text.appendCut("%p: static pthread_mutex_t eprintf_mutex sizeof=%zu\n", address(&native), sizeof native);
#ifdef __GLIBC__
    text.appendCut("    lock=%d count=%u owner=%d nusers=%u kind=%d spins=%d elision=%d\n",
                   native.__data.__lock, native.__data.__count, native.__data.__owner, native.__data.__nusers,
                   native.__data.__kind, static_cast<int>(native.__data.__spins),
                   static_cast<int>(native.__data.__elision));
#endif
}

void dumpRepeats(BoundedText& text) noexcept TP_REQUIRES(eprintf_mutex) {
    text.appendCut("%p: static size_t eprintf_info_count sizeof=%zu %zu\n", address(&eprintf_info_count),
                   sizeof eprintf_info_count, eprintf_info_count);
    text.appendCut("%p: static repeat_info eprintf_info sizeof=%zu\n", address(&eprintf_info),
                   sizeof eprintf_info);
    for (std::size_t i = 0; i < repeatEntries; ++i) {
        const repeat_info& info = eprintf_info[i];
        tm local{};
        localtime_r(&info.last_time, &local);
        text.appendCut("    [%zu] filePtr=%p line=%d count=%u last_time=%lld %02d/%02d/%02d %02d:%02d:%02d",
                       i, address(info.filePtr), info.line, info.count,
                       static_cast<long long>(info.last_time), local.tm_mon + 1, local.tm_mday,
                       local.tm_year % 100, local.tm_hour, local.tm_min, local.tm_sec);
        text.appendCut("%s%s\n", info.filePtr != nullptr ? " " : "",
                       info.filePtr != nullptr ? info.filePtr : "");
    }
}

// Writes the state to a new file of its own when the process ends.
void eprintf_atexit() {
    const char* name = std::getenv("EPRINTF_ATEXIT");
    const std::unique_ptr<char[]> dump(new (std::nothrow) char[atexitDumpSize]);
    if (name == nullptr || dump == nullptr)
        return;
    char path[256];
    BoundedText text(path, sizeof path);
    if (!text.append("/tmp/eprintf_atexit.%s.%d.txt", name, static_cast<int>(getpid())))
        return;
    // Only a new file: /tmp is everybody's, and a link planted there must not be followed.
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    const std::size_t length = eprintf_dump(dump.get(), atexitDumpSize);
    writeWhole(fd, dump.get(), length);
    ::close(fd);
}

} // namespace

bool eprintf_set_filename(const char* filename) {
    if (filename == nullptr)
        filename = "";
    const LoggerLock lock;
    std::snprintf(eprintf_filename, sizeof eprintf_filename, "%s", filename);
    return std::strlen(filename) <= kEprintfNameMax;
}

bool eprintf_init(logsink_t sink, loglvl_t lvl, const char* format, ...) {
    const ErrnoKept errnoKept;
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
    char shown[4 * nameSize]; // each byte may become four
    BoundedText prefix(shown, nameSize);
    prefix.vappendCut(format, args);
    va_end(args);
    prefix.addRoom(sizeof shown - nameSize);
    static_cast<void>(makeLoggable(prefix, 0));
    prefix.cutTo(std::min(prefix.length(), kEprintfNameMax));
    std::memcpy(eprintf_prefix, shown, prefix.length() + 1);
    if ((sink & EPF_SYSLOG) != 0)
        openlog(eprintf_prefix, LOG_PID, LOG_LOCAL0);
    closeFile();
    if ((sink & EPF_FILE) != 0)
        openFile();
    if (std::getenv("EPRINTF_ATEXIT") != nullptr && !eprintf_atexit_registered)
        eprintf_atexit_registered = std::atexit(eprintf_atexit) == 0;
    return (sink & EPF_FILE) == 0 || eprintf_file != nullptr;
}

void eprintf_ctrl(logoptact_t act, logopt_t opt) {
    const LoggerLock lock;
    switch (act) {
    case EPF_ENABLE:
        eprintf_opts = static_cast<unsigned char>(eprintf_opts | opt);
        break;
    case EPF_DISABLE:
        eprintf_opts = static_cast<unsigned char>(eprintf_opts & ~opt);
        break;
    case EPF_DEFAULT:
        eprintf_opts = EPF_OPTS_DEFAULTS;
        break;
    }
}

void eprintf_set_pacing(bool isOn) {
    const LoggerLock lock;
    reportRepeats(Clock::monotonic(), true);
    eprintf_paced = isOn;
}

void eprintf_report_repeats() {
    const ErrnoKept errnoKept;
    const LoggerLock lock;
    reportRepeats(Clock::monotonic(), false);
}

void real_eprintf(loglvl_t lvl, const char* file, int line, const char* func, const char* fmt, ...) {
    if (!passesLevel(lvl))
        return;
    const ErrnoKept errnoKept;
    va_list args;
    va_start(args, fmt);
    logLine({"real_eprintf", lvl, file, line, func, nullptr}, fmt, args);
    va_end(args);
}

void real_eperror(loglvl_t lvl, const char* file, int line, const char* func, int error, const char* fmt,
                  ...) {
    if (!passesLevel(lvl))
        return;
    const ErrnoKept errnoKept;
    va_list args;
    va_start(args, fmt);
    logLine({"real_eperror", lvl, file, line, func, &error}, fmt, args);
    va_end(args);
}

std::size_t eprintf_dump(char* buf, std::size_t len) TP_NO_THREAD_SAFETY_ANALYSIS {
    if (len == 0)
        return 0;
    BoundedText text(buf, len);
    text.appendCut("eprintf_dump(%p, %zu)\n", address(buf), len);
    text.appendCut("compiler: %s, standard: %ld\n", __VERSION__, static_cast<long>(__cplusplus));
    dumpState(text);
    dumpMutex(text);
    dumpRepeats(text);
    return text.length();
}

void eprintf_cleanup() {
    const ErrnoKept errnoKept;
    if (std::getenv("EPRINTF_CLEANUP_DUMP") != nullptr) {
        const std::unique_ptr<char[]> dump(new (std::nothrow) char[atexitDumpSize]);
        if (dump != nullptr) {
            eprintf_dump(dump.get(), atexitDumpSize);
            logDump({__func__, EPF_INFO, __FILE__, __LINE__, __func__, nullptr}, "%s() eprintf_dump(...)\n%s",
                    __func__, dump.get());
        }
    }
    const LoggerLock lock;
    reportRepeats(Clock::monotonic(), true);
    std::free(eprintf_buf);
    eprintf_buf = nullptr;
    eprintf_buf_size = 0;
    closeFile();
}

} // namespace tp
