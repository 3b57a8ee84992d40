#include "RepeatTable.h"

#include <tp/Clock.h>

#include <cstdint>
#include <time.h>

namespace tp {

namespace {

// One entry of the repeat table; a call site is known by the address of its file's name and its line.
struct repeat_info {
    const char* filePtr;
    std::int32_t line;
    unsigned count;
    time_t last_time;
};

constexpr std::size_t kRepeatEntries = 32;

repeat_info eprintf_info[kRepeatEntries] TP_GUARDED_BY(eprintf_mutex) = {};
std::size_t eprintf_info_count TP_GUARDED_BY(eprintf_mutex) = 0;

} // namespace

bool isRepeat(const char* file, int line) noexcept {
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
    eprintf_info[eprintf_info_count++ % kRepeatEntries] = repeat_info{file, line, 1, now};
    return false;
}

std::size_t repeatCount() noexcept {
    return eprintf_info_count;
}

void dumpRepeats(BoundedText& text) noexcept {
    text.appendCut("%p: static size_t eprintf_info_count sizeof=%zu %zu\n", address(&eprintf_info_count),
                   sizeof eprintf_info_count, eprintf_info_count);
    text.appendCut("%p: static repeat_info eprintf_info sizeof=%zu\n", address(&eprintf_info),
                   sizeof eprintf_info);
    for (std::size_t i = 0; i < kRepeatEntries; ++i) {
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

} // namespace tp
