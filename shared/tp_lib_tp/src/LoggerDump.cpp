#include "LoggerDump.h"

#include "BoundedText.h"
#include "LogFile.h"
#include "LogLine.h"
#include "LogSinks.h"
#include "LoggerOptions.h"
#include "PacedLines.h"
#include "RepeatTable.h"

#include <tp/eprintf.h>

#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <new>
#include <unistd.h>

namespace tp {

namespace {

bool eprintf_atexit_registered TP_GUARDED_BY(eprintf_mutex) = false;

// Writes the state to a new file of its own when the process ends.
void eprintf_atexit() {
    const char* name = std::getenv("EPRINTF_ATEXIT");
    const std::unique_ptr<char[]> dump(new (std::nothrow) char[kDumpSize]);
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
    const std::size_t length = eprintf_dump(dump.get(), kDumpSize);
    writeWhole(fd, dump.get(), length);
    ::close(fd);
}

} // namespace

void registerDumpAtExit() noexcept {
    if (std::getenv("EPRINTF_ATEXIT") != nullptr && !eprintf_atexit_registered)
        eprintf_atexit_registered = std::atexit(eprintf_atexit) == 0;
}

std::size_t eprintf_dump(char* buf, std::size_t len) TP_NO_THREAD_SAFETY_ANALYSIS {
    if (len == 0)
        return 0;
    BoundedText text(buf, len);
    text.appendCut("eprintf_dump(%p, %zu)\n", address(buf), len);
    text.appendCut("compiler: %s, standard: %ld\n", __VERSION__, static_cast<long>(__cplusplus));
    dumpOptions(text);
    dumpLogFile(text);
    dumpPrefix(text);
    dumpBuffer(text);
    text.appendCut("%p: static bool eprintf_atexit_registered sizeof=%zu %d\n",
                   address(&eprintf_atexit_registered), sizeof eprintf_atexit_registered,
                   eprintf_atexit_registered ? 1 : 0);
    dumpPacing(text);
    dumpMutex(text);
    dumpRepeats(text);
    return text.length();
}

} // namespace tp
