#include "PacedLines.h"

#include "ErrnoKept.h"
#include "LinePacing.h"
#include "LogRoute.h"
#include "LoggerOptions.h"

#include <tp/Clock.h>
#include <tp/logRoute.h>

#include <type_traits>

namespace tp {

namespace {

bool eprintf_paced TP_GUARDED_BY(eprintf_mutex) = true;
constinit LinePacing eprintf_pacing TP_GUARDED_BY(eprintf_mutex);
bool s_isFolding TP_GUARDED_BY(eprintf_mutex) = false;
int s_calmArea TP_GUARDED_BY(eprintf_mutex) = -1;
static_assert(std::is_trivially_destructible_v<LinePacing>);

} // namespace

void reportRepeats(double now, bool all) noexcept {
    if (!all && !eprintf_pacing.isDue(now))
        return;
    for (LinePacing::Repeats repeats{}; eprintf_pacing.takeDue(now, all, repeats);) {
        const auto& [site, count, shown] = repeats;
        const LineRequest request{__func__, site.level, site.file, site.line, site.func, nullptr};
        const auto times = static_cast<unsigned long long>(count);
        if (hasOption(EPF_MUTE) && !hasLogCallback())
            continue;
        if (s_isFolding)
            writeLinef(request, "last message repeated %llu times: %s", times, shown);
        else
            writeLinef(request, "%s (repeated %llu times)", shown, times);
    }
}

bool passesPace(LineRequest& request) noexcept {
    const double now = Clock::monotonic();
    reportRepeats(now, false);
    if (request.level >= EPF_DBUG || !eprintf_paced)
        return true;
    const bool isCalm = s_isFolding && s_calmArea >= 0 && areaOf(request.file) == s_calmArea;
    const LinePacing::Verdict verdict =
        eprintf_pacing.judge(request.site(), now, isCalm ? LinePacing::kCalm : LinePacing::kUsual);
    if (verdict == LinePacing::Verdict::WriteAndKeep)
        request.keeper = &eprintf_pacing;
    return verdict != LinePacing::Verdict::Hold;
}

void eprintf_set_pacing(bool isOn) {
    const LoggerLock lock;
    reportRepeats(Clock::monotonic(), true);
    eprintf_paced = isOn;
}

void setLogFolding(bool isOn, int calmArea) noexcept {
    const LoggerLock lock;
    reportRepeats(Clock::monotonic(), true);
    s_isFolding = isOn;
    s_calmArea = calmArea;
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
