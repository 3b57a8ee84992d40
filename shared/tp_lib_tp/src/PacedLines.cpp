#include "PacedLines.h"

#include "ErrnoKept.h"
#include "LinePacing.h"
#include "LoggerOptions.h"

#include <tp/Clock.h>

#include <type_traits>

namespace tp {

namespace {

bool eprintf_paced TP_GUARDED_BY(eprintf_mutex) = true;
constinit LinePacing eprintf_pacing TP_GUARDED_BY(eprintf_mutex);
static_assert(std::is_trivially_destructible_v<LinePacing>);

} // namespace

void reportRepeats(double now, bool all) noexcept {
    if (!all && !eprintf_pacing.isDue(now))
        return;
    for (LinePacing::Repeats repeats{}; eprintf_pacing.takeDue(now, all, repeats);) {
        const auto& [site, count, shown] = repeats;
        if (!hasOption(EPF_MUTE))
            writeLinef({__func__, site.level, site.file, site.line, site.func, nullptr},
                       "%s (repeated %llu times)", shown, static_cast<unsigned long long>(count));
    }
}

bool passesPace(LineRequest& request) noexcept {
    const double now = Clock::monotonic();
    reportRepeats(now, false);
    if (request.level >= EPF_DBUG || !eprintf_paced)
        return true;
    const LinePacing::Verdict verdict = eprintf_pacing.judge(request.site(), now);
    if (verdict == LinePacing::Verdict::WriteAndKeep)
        request.keeper = &eprintf_pacing;
    return verdict != LinePacing::Verdict::Hold;
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

void dumpPacing(BoundedText& text) noexcept {
    text.appendCut("%p: static bool eprintf_paced sizeof=%zu %d\n", address(&eprintf_paced),
                   sizeof eprintf_paced, eprintf_paced ? 1 : 0);
    text.appendCut("%p: static LinePacing eprintf_pacing sizeof=%zu sites=%zu\n", address(&eprintf_pacing),
                   sizeof eprintf_pacing, eprintf_pacing.sites());
}

} // namespace tp
