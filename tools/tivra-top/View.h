#pragma once

#include "Picture.h"

namespace tivra_top {

/// What somebody does at the keyboard.
enum class Key { Character, Up, Down, PageUp, PageDown, Left, Right, Home, Tab, Escape, Backspace, Enter };

enum class Panel { Overview, Board, Hubs, Log };

/// How somebody looks at pictures: which panel, which rows, in which order. It knows no terminal.
class View {
public:
    void press(Key key, char character = '\0');

    [[nodiscard]] Panel panel() const { return m_panel; }
    [[nodiscard]] const std::string& filter() const { return m_filter; }
    [[nodiscard]] bool isTyping() const { return m_isTyping; }
    [[nodiscard]] bool isPaused() const { return m_isPaused; }
    [[nodiscard]] bool isDescending() const { return m_isDescending; }
    [[nodiscard]] bool hasEnded() const { return m_hasEnded; }
    /// 0 for the name, then the cells, the rate, the age and the state.
    [[nodiscard]] std::size_t sortColumn(const Picture& picture) const;
    /// The rows that pass the filter, in their order.
    [[nodiscard]] std::vector<const Row*> rowsOf(const Picture& picture) const;
    /// The first of `count` things to show where `room` fit, of a log counted from its end. Scrolling beyond
    /// the last is taken back.
    [[nodiscard]] std::size_t firstOf(std::size_t count, std::size_t room);

private:
    void type(Key key, char character);
    void scroll(std::ptrdiff_t lines);
    void command(char character);

    Panel m_panel = Panel::Overview;
    std::size_t m_sort = 0;
    std::size_t m_scroll = 0;
    bool m_isDescending = false;
    bool m_isTyping = false;
    bool m_isPaused = false;
    bool m_hasEnded = false;
    std::string m_filter;
};

} // namespace tivra_top
