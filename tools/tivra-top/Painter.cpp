#include "Painter.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cmath>

namespace tivra_top {

namespace {

constexpr std::size_t kName = 14;
constexpr std::size_t kCell = 10;
constexpr std::size_t kShort = 7;
constexpr std::size_t kTime = 6;
constexpr std::size_t kScale = 14;
constexpr std::size_t kState = 10;
constexpr std::size_t kNarrow = 60;

/// A part of the canvas: lines from `top` on.
struct Region {
    std::size_t top = 0;
    std::size_t lines = 0;
};

std::string right(const std::string& text, std::size_t width) {
    return text.size() > width ? text.substr(0, width - 1) + "~" : fmt::format("{:>{}}", text, width);
}

std::string left(const std::string& text, std::size_t width) {
    return text.size() > width ? text.substr(0, width - 1) + "~" : fmt::format("{:<{}}", text, width);
}

std::string timeText(TimePoint time) {
    return fmt::format("{:%H:%M:%S}", fmt::gmtime(std::chrono::system_clock::to_time_t(time)));
}

std::string ageOf(const Row& row, TimePoint now) {
    if (!row.lastUpdate)
        return "-";
    const auto age = std::chrono::floor<std::chrono::seconds>(now - *row.lastUpdate);
    return age.count() < 1 ? "0s" : durationText(age);
}

Style styleOf(const Row& row, const Cell& cell) {
    if (isStale(row.state))
        return Style::Stale;
    return cell.move > 0 ? Style::Up : cell.move < 0 ? Style::Down : Style::Plain;
}

void paintHeader(const Picture& picture, const View& view, Canvas& canvas) {
    std::size_t ready = 0;
    for (const HubLine& hub : picture.hubs)
        ready += hub.status.to == tivra::HubState::Ready ? 1 : 0;
    canvas.fill(0, Style::Head);
    canvas.put(0, 0,
               fmt::format("{} {:.0f}/s{} symbols {}{}{}{}  {}  {} UTC", nameOf(picture.state), picture.rate,
                           picture.hubs.empty() ? "" : fmt::format(" hubs {}/{}", ready, picture.hubs.size()),
                           picture.rows.size(), picture.gaps ? fmt::format(" gaps {}", *picture.gaps) : "",
                           picture.leftOut > 0 ? fmt::format(" left out {}", picture.leftOut) : "",
                           view.isPaused() ? " PAUSED" : "", picture.title, timeText(picture.time)),
               picture.state == tivra::FeedState::Established ? Style::Head : Style::Warning);
}

void paintFooter(const View& view, Canvas& canvas) {
    const std::size_t y = canvas.height() - 1;
    canvas.fill(y, Style::Head);
    if (view.isTyping() || !view.filter().empty())
        canvas.put(0, y, fmt::format("filter: {}{}", view.filter(), view.isTyping() ? "_" : " (Esc clears)"),
                   Style::Head);
    else
        canvas.put(0, y, "q quit  Tab panel  / filter  left,right sort  r reverse  p pause  up,down scroll",
                   Style::Head);
}

/// The name of a column, marked when rows are sorted by it.
std::string headOf(const std::string& name, bool isSorted, bool isDescending) {
    return isSorted ? name + (isDescending ? "v" : "^") : name;
}

/// Rate and age, which give way to values in a narrow window.
std::size_t figuresWidth(std::size_t width) {
    return width < kNarrow ? 0 : 2 * kShort;
}

/// How many cells fit between the name and the columns at the end.
std::size_t cellsThatFit(const Picture& picture, std::size_t width) {
    const std::size_t taken = kName + figuresWidth(width) + 1 + kState;
    return std::min(picture.columns.size(), width > taken ? (width - taken) / kCell : 0);
}

/// Names get the width that is left, as far as they need it.
std::size_t nameWidth(const Picture& picture, std::size_t width) {
    const std::size_t taken = kName + figuresWidth(width) + 1 + kState + cellsThatFit(picture, width) * kCell;
    std::size_t wanted = kName;
    for (const Row& row : picture.rows)
        wanted = std::max(wanted, row.name.size() + 1);
    return std::min(wanted, kName + (width > taken ? width - taken : 0));
}

/// As many digits of a number as fit; other text is cut.
std::string cellText(const Cell& cell, std::size_t width) {
    for (int digits = static_cast<int>(width); cell.number && cell.text.size() > width && digits > 0;
         --digits)
        if (std::string text = fmt::format("{:.{}g}", *cell.number, digits); text.size() <= width)
            return text;
    return left(cell.text, std::min(cell.text.size(), width));
}

void paintBoardHead(const Picture& picture, const View& view, Canvas& canvas, std::size_t y) {
    const std::size_t cells = cellsThatFit(picture, canvas.width());
    const std::size_t name = nameWidth(picture, canvas.width());
    const std::size_t sorted = view.sortColumn(picture);
    const auto head = [&](const std::string& title, std::size_t column) {
        return headOf(title, column == sorted, view.isDescending());
    };
    std::string text = left(head("SYMBOL", 0), name);
    for (std::size_t i = 0; i < cells; ++i)
        text.append(" ").append(right(head(picture.columns[i], i + 1), kCell - 1));
    const std::size_t own = picture.columns.size() + 1;
    if (figuresWidth(canvas.width()) > 0)
        text += right(head("RATE", own), kShort) + right(head("AGE", own + 1), kShort);
    text.append(" ").append(head("STATE", own + 2));
    canvas.fill(y, Style::Head);
    canvas.put(0, y, text, Style::Head);
}

/// The text ends before `end`; blanks beside it have no style, which would be seen as lines.
void paintCell(const Row& row, const Cell& cell, Canvas& canvas, std::size_t end, std::size_t y) {
    const std::string text = cellText(cell, kCell - 1);
    canvas.put(end - text.size(), y, text, styleOf(row, cell));
}

void paintRow(const Picture& picture, const Row& row, std::size_t name, Canvas& canvas, std::size_t y) {
    const Style style = isStale(row.state) ? Style::Stale : Style::Plain;
    std::size_t x = name;
    canvas.put(0, y, left(row.name, name), style);
    for (std::size_t i = 0; i < cellsThatFit(picture, canvas.width()); ++i, x += kCell)
        if (i < row.cells.size())
            paintCell(row, row.cells[i], canvas, x + kCell, y);
    const std::size_t figures = figuresWidth(canvas.width());
    if (figures > 0)
        canvas.put(x, y,
                   right(fmt::format("{:.0f}", row.rate), kShort) + right(ageOf(row, picture.time), kShort),
                   style);
    canvas.put(x + figures + 1, y, nameOf(row.state),
               row.state == tivra::DataState::Refused ? Style::Warning : style);
}

void paintBoard(const Picture& picture, View& view, Canvas& canvas, Region region) {
    if (region.lines == 0)
        return;
    paintBoardHead(picture, view, canvas, region.top);
    const std::vector<const Row*> rows = view.rowsOf(picture);
    const std::size_t name = nameWidth(picture, canvas.width());
    const std::size_t room = region.lines - 1;
    const std::size_t first = view.firstOf(rows.size(), room);
    for (std::size_t i = 0; i < room && first + i < rows.size(); ++i)
        paintRow(picture, *rows[first + i], name, canvas, region.top + 1 + i);
}

/// The columns from the rate to the queue.
std::string figuresText(const HubLine& hub) {
    const tivra::LatencySummary& latency = hub.statistics.socketToDecode;
    const tivra::LatencySummary& queued = hub.statistics.decodeToCallback;
    const bool hasLatency = latency.count > 0;
    return right(fmt::format("{:.0f}", hub.rate), kShort) +
           right(hasLatency ? durationText(latency.p50) : "-", kTime) +
           right(hasLatency ? durationText(latency.p99) : "-", kTime) +
           right(queued.count > 0 ? durationText(queued.p99) : "-", kShort) +
           right(fmt::format("{:.0f}%", hub.statistics.queueFill * 100.0), 5) + " ";
}

void paintHubs(const Picture& picture, View& view, Canvas& canvas, Region region) {
    if (region.lines == 0)
        return;
    canvas.fill(region.top, Style::Head);
    canvas.put(0, region.top,
               left("HUB", 22) + left("STATE", 12) + right("RATE", kShort) + right("P50", kTime) +
                   right("P99", kTime) + right("QUEUED", kShort) + right("FULL", 5) + " " +
                   left("1us   1ms   1s", kScale) + " CAUSE",
               Style::Head);
    const std::size_t room = region.lines - 1;
    const std::size_t first = view.panel() == Panel::Hubs ? view.firstOf(picture.hubs.size(), room) : 0;
    for (std::size_t i = 0; i < room && first + i < picture.hubs.size(); ++i) {
        const HubLine& hub = picture.hubs[first + i];
        const tivra::LatencySummary& latency = hub.statistics.socketToDecode;
        const bool isReady = hub.status.to == tivra::HubState::Ready;
        // Why a hub isn't there matters more than how fast it was.
        const std::string rest =
            hub.status.cause.empty() || isReady ? distributionText(latency, kScale) : hub.status.cause;
        canvas.put(0, region.top + 1 + i,
                   left(hub.status.hub, 22) + left(nameOf(hub.status.to), 12) + figuresText(hub) + rest,
                   isReady ? Style::Plain : Style::Warning);
    }
}

/// The last lines, or earlier ones by scrolling.
void paintLog(const Picture& picture, View& view, Canvas& canvas, Region region) {
    if (region.lines == 0)
        return;
    canvas.fill(region.top, Style::Head);
    canvas.put(0, region.top, "LOG", Style::Head);
    const std::size_t room = region.lines - 1;
    const std::size_t count = std::min(room, picture.log.size());
    const std::size_t back = view.panel() == Panel::Log ? view.firstOf(picture.log.size(), room) : 0;
    for (std::size_t i = 0; i < count; ++i) {
        const LogEntry& entry = picture.log[picture.log.size() - back - count + i];
        canvas.put(0, region.top + 1 + i, fmt::format("{} {}", timeText(entry.time), entry.text),
                   entry.isWarning ? Style::Warning : Style::Plain);
    }
}

/// Board, hubs and log one below the other; a low window has the board alone.
void paintOverview(const Picture& picture, View& view, Canvas& canvas, Region region) {
    const std::size_t hubs =
        region.lines < 6 || picture.hubs.empty() ? 0 : std::min(picture.hubs.size() + 1, region.lines / 3);
    const std::size_t log = region.lines < 14 ? 0 : region.lines / 4;
    const std::size_t board = region.lines - hubs - log;
    paintBoard(picture, view, canvas, {region.top, board});
    paintHubs(picture, view, canvas, {region.top + board, hubs});
    paintLog(picture, view, canvas, {region.top + board + hubs, log});
}

std::size_t placeOf(std::chrono::nanoseconds time, std::size_t width) {
    const double decades = std::log10(std::max(1.0, static_cast<double>(time.count()) / 1e3)) / 6.0;
    return static_cast<std::size_t>(std::min(1.0, decades) * static_cast<double>(width - 1));
}

} // namespace

std::string durationText(std::chrono::nanoseconds time) {
    const double seconds = std::chrono::duration<double>(time).count();
    if (seconds < 1e-6)
        return fmt::format("{}ns", time.count());
    if (seconds < 1e-3)
        return fmt::format("{:.0f}us", std::floor(seconds * 1e6));
    if (seconds < 10e-3)
        return fmt::format("{:.1f}ms", std::floor(seconds * 1e4) / 10);
    if (seconds < 1.0)
        return fmt::format("{:.0f}ms", std::floor(seconds * 1e3));
    if (seconds < 600.0)
        return fmt::format("{:.0f}s", std::floor(seconds));
    if (seconds < 36000.0)
        return fmt::format("{:.0f}m", std::floor(seconds / 60));
    return fmt::format("{:.0f}h", std::floor(seconds / 3600));
}

std::string distributionText(const tivra::LatencySummary& summary, std::size_t width) {
    std::string text(width, ' ');
    if (summary.count == 0 || width == 0)
        return text;
    const auto draw = [&](std::chrono::nanoseconds from, std::chrono::nanoseconds to, char c) {
        for (std::size_t x = placeOf(from, width); x <= placeOf(to, width); ++x)
            text[x] = c;
    };
    draw(summary.min, summary.max, '-');
    draw(summary.p50, summary.p99, '=');
    draw(summary.p50, summary.p50, '|');
    return text;
}

Canvas paint(const Picture& picture, View& view, std::size_t width, std::size_t height) {
    Canvas canvas(width, height);
    if (width == 0 || height == 0)
        return canvas;
    paintHeader(picture, view, canvas);
    const bool hasFooter = height >= 4 || (height >= 2 && view.isTyping());
    if (hasFooter)
        paintFooter(view, canvas);
    const Region region{1, height - (hasFooter ? 2 : 1)};
    switch (view.panel()) {
    case Panel::Overview:
        paintOverview(picture, view, canvas, region);
        break;
    case Panel::Board:
        paintBoard(picture, view, canvas, region);
        break;
    case Panel::Hubs:
        paintHubs(picture, view, canvas, region);
        break;
    case Panel::Log:
        paintLog(picture, view, canvas, region);
        break;
    }
    return canvas;
}

} // namespace tivra_top
