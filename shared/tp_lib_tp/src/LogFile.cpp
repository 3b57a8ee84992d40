#include "LogFile.h"

#include "LogSinks.h"
#include "LoggerOptions.h"

#include <tp/Clock.h>
#include <tp/aboveStandardStreams.h>
#include <tp/logRoute.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tp {

namespace {

constexpr std::size_t kNameSize = kEprintfNameMax + 1;

char eprintf_filename[kNameSize] TP_GUARDED_BY(eprintf_mutex) = "eprintflog";
char eprintf_failed_filename[kNameSize + 16] TP_GUARDED_BY(eprintf_mutex) = "";
int eprintf_current_file_date TP_GUARDED_BY(eprintf_mutex) = -1;
int eprintf_fd TP_GUARDED_BY(eprintf_mutex) = -1;
FILE* eprintf_file TP_GUARDED_BY(eprintf_mutex) = nullptr;
char s_openName[kNameSize + 16] TP_GUARDED_BY(eprintf_mutex) = "";
std::uint64_t s_size TP_GUARDED_BY(eprintf_mutex) = 0; ///< of the open file
std::uint64_t s_mostBytes TP_GUARDED_BY(eprintf_mutex) = 0;
unsigned s_keptFiles TP_GUARDED_BY(eprintf_mutex) = 0;

// Reports once per name, or a log that can't be written would flood standard error.
void reportOpenFailure(const char* name, int error) noexcept TP_REQUIRES(eprintf_mutex) {
    if (std::strcmp(eprintf_failed_filename, name) == 0)
        return;
    std::snprintf(eprintf_failed_filename, sizeof eprintf_failed_filename, "%s", name);
    internal_errorf("eprintf: Unable to open %s - errno = %d: %s\n", name, error, std::strerror(error));
}

// A file that can't be taken for a standard stream of the host, which may have closed its own.
FILE* openForAppending(const char* name) noexcept {
    const int fd = aboveStandardStreams(::open(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
    FILE* const file = fd < 0 ? nullptr : ::fdopen(fd, "a");
    if (file == nullptr && fd >= 0)
        ::close(fd);
    return file;
}

} // namespace

bool eprintf_set_filename(const char* filename) {
    if (filename == nullptr)
        filename = "";
    const LoggerLock lock;
    std::snprintf(eprintf_filename, sizeof eprintf_filename, "%s", filename);
    return std::strlen(filename) <= kEprintfNameMax;
}

bool openLogFile() noexcept {
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
        return false;
    }
    eprintf_fd = fileno(eprintf_file);
    struct stat state {};
    s_size = ::fstat(eprintf_fd, &state) == 0 ? static_cast<std::uint64_t>(state.st_size) : 0;
    std::snprintf(s_openName, sizeof s_openName, "%s", name);
    eprintf_failed_filename[0] = '\0';
    return true;
}

void closeLogFile() noexcept {
    if (eprintf_file != nullptr)
        std::fclose(eprintf_file);
    eprintf_file = nullptr;
    eprintf_fd = -1;
}

void rollLogFile(const tm& local) noexcept {
    if (local.tm_yday == eprintf_current_file_date)
        return;
    closeLogFile();
    openLogFile();
}

void limitLogFile(std::size_t bytes) noexcept {
    s_size += bytes;
    if (s_mostBytes == 0 || s_size <= s_mostBytes || s_size == bytes || eprintf_file == nullptr)
        return;
    char from[sizeof s_openName + 16], to[sizeof s_openName + 16];
    for (unsigned number = s_keptFiles; number > 0; --number) {
        std::snprintf(to, sizeof to, "%s.%u", s_openName, number);
        if (number > 1)
            std::snprintf(from, sizeof from, "%s.%u", s_openName, number - 1);
        else
            std::snprintf(from, sizeof from, "%s", s_openName);
        std::rename(from, to); // one that isn't there leaves what is
    }
    if (s_keptFiles == 0)
        ::unlink(s_openName);
    closeLogFile();
    openLogFile();
    s_size += bytes;
}

void setLogFileLimit(std::uint64_t bytes, unsigned kept) noexcept {
    const LoggerLock lock;
    s_mostBytes = bytes;
    s_keptFiles = kept;
}

FILE* logFile() noexcept {
    return eprintf_file;
}

int logFileDescriptor() noexcept {
    return eprintf_fd;
}

bool localNow(tm& local) noexcept {
    const time_t seconds = static_cast<time_t>(Clock::now());
    return localtime_r(&seconds, &local) != nullptr;
}

void dumpLogFile(BoundedText& text) noexcept {
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
    // NOLINTBEGIN(bugprone-sizeof-expression): the size of the variable is meant
    text.appendCut("%p: static FILE* eprintf_file sizeof=%zu %p\n", address(&eprintf_file),
                   sizeof eprintf_file, address(eprintf_file));
    // NOLINTEND(bugprone-sizeof-expression)
}

} // namespace tp
