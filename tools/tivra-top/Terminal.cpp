#include "Terminal.h"

#include "ExitCode.h"

#include <fmt/format.h>

#include <curses.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <term.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

// Both are macros with common names.
#undef lines
#undef columns

namespace tivra_top {

namespace {

/// What a terminal may say of its size; more would be memory that nobody looks at.
constexpr unsigned short kMostCells = 1000;
/// Bright black, which a terminal of eight colours hasn't.
constexpr int kGrey = 8;
constexpr const char* kInstead = "; --once prints one picture as text, --serve shows it in a browser";

short pairOf(Style style) {
    return static_cast<short>(static_cast<int>(style) + 1);
}

/// Without colour what rises is bold, what falls underlined, and what is stale has its state beside it.
attr_t attributesOf(Style style, bool hasColor) {
    const attr_t color = hasColor ? COLOR_PAIR(pairOf(style)) : 0;
    switch (style) {
    case Style::Head:
        return A_REVERSE;
    case Style::Up:
        return hasColor ? color : A_BOLD;
    case Style::Down:
        return hasColor ? color : A_UNDERLINE;
    case Style::Stale:
        return hasColor && COLORS > kGrey ? color : A_DIM;
    case Style::Warning:
        return color | A_BOLD;
    case Style::Plain:
        break;
    }
    return A_NORMAL;
}

void startColors() {
    start_color();
    use_default_colors();
    for (const auto& [style, color] :
         {std::pair(Style::Up, COLOR_GREEN), std::pair(Style::Down, COLOR_RED),
          std::pair(Style::Stale, COLORS > kGrey ? kGrey : -1), std::pair(Style::Warning, COLOR_YELLOW)})
        init_pair(pairOf(style), static_cast<short>(color), -1);
}

std::optional<std::pair<Key, char>> meaningOf(int code) {
    switch (code) {
    case KEY_UP:
        return std::pair(Key::Up, '\0');
    case KEY_DOWN:
        return std::pair(Key::Down, '\0');
    case KEY_PPAGE:
        return std::pair(Key::PageUp, '\0');
    case KEY_NPAGE:
        return std::pair(Key::PageDown, '\0');
    case KEY_LEFT:
        return std::pair(Key::Left, '\0');
    case KEY_RIGHT:
        return std::pair(Key::Right, '\0');
    case KEY_HOME:
        return std::pair(Key::Home, '\0');
    case '\t':
        return std::pair(Key::Tab, '\0');
    case 27:
        return std::pair(Key::Escape, '\0');
    case KEY_BACKSPACE:
    case 127:
    case 8:
        return std::pair(Key::Backspace, '\0');
    case KEY_ENTER:
    case '\n':
    case '\r':
        return std::pair(Key::Enter, '\0');
    default:
        if (code >= 0x20 && code < 0x7f)
            return std::pair(Key::Character, static_cast<char>(code));
        return std::nullopt;
    }
}

} // namespace

void Terminal::check() {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0)
        throw Failure(ExitCode::OutputFailed,
                      fmt::format("standard input and output are no terminal{}", kInstead));
    const char* const name = std::getenv("TERM");
    int error = 0;
    if (name == nullptr || setupterm(name, STDOUT_FILENO, &error) != OK)
        throw Failure(
            ExitCode::OutputFailed,
            fmt::format("the terminal TERM={} isn't known here: set TERM to what it is, such as xterm{}",
                        name == nullptr ? "" : name, kInstead));
    const char* const move = tigetstr("cup");
    del_curterm(cur_term);
    if (move == nullptr || move == reinterpret_cast<const char*>(-1))
        throw Failure(ExitCode::OutputFailed,
                      fmt::format("the terminal TERM={} can't move its cursor{}", name, kInstead));
}

Terminal::Terminal(bool wantsColor) {
    check();
    SCREEN* const screen = newterm(nullptr, stdout, stdin);
    if (screen == nullptr)
        throw Failure(ExitCode::OutputFailed, fmt::format("the terminal can't be set up{}", kInstead));
    m_screen = screen;
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    set_escdelay(50);
    curs_set(0);
    m_hasColor = wantsColor && has_colors();
    if (m_hasColor)
        startColors();
}

Terminal::~Terminal() {
    endwin();
    delscreen(static_cast<SCREEN*>(m_screen));
}

std::pair<std::size_t, std::size_t> Terminal::size() {
    winsize window{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_row > 0 && window.ws_col > 0) {
        const int lines = std::min(window.ws_row, kMostCells);
        const int columns = std::min(window.ws_col, kMostCells);
        if (lines != LINES || columns != COLS)
            resizeterm(lines, columns);
    }
    return {static_cast<std::size_t>(COLS), static_cast<std::size_t>(LINES)};
}

void Terminal::draw(const Canvas& canvas) {
    for (std::size_t y = 0; y < canvas.height(); ++y) {
        for (std::size_t x = 0; x < canvas.width(); ++x) {
            const Canvas::Glyph& glyph = canvas.at(x, y);
            attrset(static_cast<int>(attributesOf(glyph.style, m_hasColor)));
            mvaddch(static_cast<int>(y), static_cast<int>(x), static_cast<unsigned char>(glyph.character));
        }
    }
    refresh();
}

std::optional<std::pair<Key, char>> Terminal::key() {
    for (;;) {
        const int code = getch();
        if (code == ERR) {
            pollfd watched{STDIN_FILENO, POLLIN, 0};
            m_isGone = poll(&watched, 1, 0) > 0 && (watched.revents & (POLLHUP | POLLERR)) != 0;
            return std::nullopt;
        }
        if (const auto meaning = meaningOf(code))
            return meaning;
    }
}

} // namespace tivra_top
