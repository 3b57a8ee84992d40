#include "View.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace tivra_top {

namespace {

constexpr std::ptrdiff_t kPage = 10;
/// Beyond the first of whatever there is.
constexpr std::ptrdiff_t kFar = 1'000'000;
constexpr std::size_t kLongestFilter = 40;
/// Name, rate, age and state.
constexpr std::size_t kOwnColumns = 4;

bool isSame(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

bool hasWord(const std::string& text, const std::string& word) {
    return std::search(text.begin(), text.end(), word.begin(), word.end(), isSame) != text.end();
}

/// -1, 0 or 1; what has no number comes before what has.
int compare(const Cell* a, const Cell* b) {
    const bool isFirst = a != nullptr && a->number;
    const bool isSecond = b != nullptr && b->number;
    if (isFirst && isSecond && *a->number != *b->number)
        return *a->number < *b->number ? -1 : 1;
    if (isFirst != isSecond)
        return isFirst ? 1 : -1;
    if (isFirst || a == nullptr || b == nullptr)
        return 0;
    return a->text.compare(b->text);
}

const Cell* cellAt(const Row& row, std::size_t index) {
    return index < row.cells.size() ? &row.cells[index] : nullptr;
}

template<class T>
int order(const T& a, const T& b) {
    return a < b ? -1 : b < a ? 1 : 0;
}

int compare(const Row& a, const Row& b, std::size_t column, std::size_t cells) {
    if (column == 0)
        return 0;
    if (column <= cells)
        return compare(cellAt(a, column - 1), cellAt(b, column - 1));
    if (column == cells + 1)
        return order(a.rate, b.rate);
    if (column == cells + 2) // the youngest has the latest time
        return order(b.lastUpdate.value_or(TimePoint{}), a.lastUpdate.value_or(TimePoint{}));
    return order(a.state, b.state);
}

} // namespace

std::size_t View::sortColumn(const Picture& picture) const {
    return m_sort % (picture.columns.size() + kOwnColumns);
}

std::vector<const Row*> View::rowsOf(const Picture& picture) const {
    std::vector<const Row*> rows;
    for (const Row& row : picture.rows)
        if (hasWord(row.name, m_filter))
            rows.push_back(&row);
    const std::size_t column = sortColumn(picture);
    std::stable_sort(rows.begin(), rows.end(), [&](const Row* a, const Row* b) {
        int result = compare(*a, *b, column, picture.columns.size());
        if (result == 0)
            result = a->name.compare(b->name);
        return m_isDescending ? result > 0 : result < 0;
    });
    return rows;
}

std::size_t View::firstOf(std::size_t count, std::size_t room) {
    m_scroll = std::min(m_scroll, count > room ? count - room : 0);
    return m_scroll;
}

void View::scroll(std::ptrdiff_t lines) {
    const std::ptrdiff_t away = m_panel == Panel::Log ? -lines : lines;
    const auto count = static_cast<std::size_t>(std::abs(away));
    m_scroll = away > 0 ? m_scroll + count : m_scroll - std::min(m_scroll, count);
}

void View::press(Key key, char character) {
    if (m_isTyping &&
        (key == Key::Character || key == Key::Escape || key == Key::Backspace || key == Key::Enter))
        return type(key, character);
    switch (key) {
    case Key::Up:
        scroll(-1);
        break;
    case Key::Down:
        scroll(1);
        break;
    case Key::PageUp:
        scroll(-kPage);
        break;
    case Key::PageDown:
        scroll(kPage);
        break;
    case Key::Home:
        scroll(-kFar);
        break;
    case Key::Left:
        m_sort -= std::min<std::size_t>(m_sort, 1);
        break;
    case Key::Right:
        ++m_sort;
        break;
    case Key::Tab:
        m_panel = static_cast<Panel>((static_cast<int>(m_panel) + 1) % 4);
        m_scroll = 0;
        break;
    case Key::Escape:
        m_filter.clear();
        break;
    case Key::Character:
        command(character);
        break;
    case Key::Backspace:
    case Key::Enter:
        break;
    }
}

void View::type(Key key, char character) {
    if (key == Key::Character && m_filter.size() < kLongestFilter)
        m_filter += character;
    else if (key == Key::Backspace && !m_filter.empty())
        m_filter.pop_back();
    else if (key == Key::Escape)
        m_filter.clear();
    if (key == Key::Escape || key == Key::Enter)
        m_isTyping = false;
    m_scroll = 0;
}

void View::command(char character) {
    switch (character) {
    case 'q':
        m_hasEnded = true;
        break;
    case 'r':
        m_isDescending = !m_isDescending;
        break;
    case 'p':
        m_isPaused = !m_isPaused;
        break;
    case '/':
        m_isTyping = true;
        break;
    default:
        break;
    }
}

} // namespace tivra_top
