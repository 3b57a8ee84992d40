#include "Run.h"

#include "EventServer.h"
#include "Painter.h"
#include "Terminal.h"

#include <fmt/format.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace tivra_top {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kFrame{250};
/// How often the page gets what has changed.
constexpr std::chrono::milliseconds kPagePace{500};
constexpr std::chrono::milliseconds kOnceSlice{20};
/// Rates need a second, and a little more.
constexpr std::chrono::milliseconds kRateSpan{1050};

std::size_t textWidth() {
    winsize window{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0)
        return window.ws_col;
    const char* const columns = std::getenv("COLUMNS");
    const long wanted = columns == nullptr ? 0 : std::strtol(columns, nullptr, 10);
    return wanted > 0 && wanted <= 1000 ? static_cast<std::size_t>(wanted) : 80;
}

/// Waits for the time, or a signal that ends the program. @return false for such a signal
bool rest(Signals& signals, Clock::duration time) {
    const Clock::time_point end = Clock::now() + time;
    while (!signals.hasEnd() && Clock::now() < end)
        signals.wait(-1, kOnceSlice);
    return !signals.hasEnd();
}

} // namespace

ExitCode runScreen(const Options& options, Watch& watch, Signals& signals) {
    Terminal terminal(options.hasColor);
    View view;
    Picture picture = watch.picture();
    Clock::time_point taken = Clock::now();
    while (!view.hasEnded() && !signals.hasEnd()) {
        const auto [width, height] = terminal.size();
        terminal.draw(paint(picture, view, width, height));
        signals.wait(STDIN_FILENO, kFrame);
        while (const auto pressed = terminal.key())
            view.press(pressed->first, pressed->second);
        if (terminal.isGone())
            return ExitCode::OutputFailed;
        if (!view.isPaused() && Clock::now() - taken >= kFrame) {
            picture = watch.picture();
            taken = Clock::now();
        }
    }
    return ExitCode::Ended;
}

ExitCode runOnce(const Options& options, Watch& watch, Signals& signals) {
    const auto deadline = Clock::now() + std::chrono::duration<double>(options.timeoutSeconds);
    while (!watch.isAnswered() && Clock::now() < deadline)
        if (!rest(signals, kOnceSlice))
            return ExitCode::Interrupted;
    const bool isAnswered = watch.isAnswered();
    Picture picture = watch.picture();
    if (!rest(signals, kRateSpan))
        return ExitCode::Interrupted;
    picture = watch.picture();
    const std::size_t height = 24;
    View view;
    const Canvas canvas = paint(picture, view, textWidth(), height);
    for (std::size_t y = 0; y + 1 < height; ++y) // the last line is for keys
        if (std::fputs((canvas.line(y) + "\n").c_str(), stdout) < 0)
            throw Failure(ExitCode::OutputFailed, "standard output cannot be written");
    if (std::fflush(stdout) != 0)
        throw Failure(ExitCode::OutputFailed, "standard output cannot be written");
    if (!isAnswered)
        fmt::print(stderr, "tivra-top: not all was answered in {} s\n", options.timeoutSeconds);
    return isAnswered ? ExitCode::Ended : ExitCode::NoAnswer;
}

ExitCode runPage(const Options& options, Watch& watch, Signals& signals) {
    EventServer server(options.serve);
    fmt::print("tivra-top: page on http://{}/\n", server.address());
    std::fflush(stdout);
    Clock::time_point next = Clock::now();
    while (!signals.hasEnd()) {
        server.publish(watch.picture());
        next = std::max(next + kPagePace, Clock::now());
        if (!rest(signals, next - Clock::now()))
            break;
    }
    fmt::print("tivra-top: {} viewers, {} of them dropped for being slow\n", server.viewers(),
               server.dropped());
    return ExitCode::Ended;
}

} // namespace tivra_top
