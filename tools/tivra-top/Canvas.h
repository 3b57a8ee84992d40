#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace tivra_top {

/// How a character stands out.
enum class Style : unsigned char { Plain, Head, Up, Down, Stale, Warning };

/// A window's characters, before anything is drawn. What doesn't fit is cut off.
class Canvas {
public:
    struct Glyph {
        char character = ' ';
        Style style = Style::Plain;
    };

    Canvas(std::size_t width, std::size_t height)
        : m_width(width), m_height(height), m_glyphs(width * height) {}

    [[nodiscard]] std::size_t width() const { return m_width; }
    [[nodiscard]] std::size_t height() const { return m_height; }
    [[nodiscard]] const Glyph& at(std::size_t x, std::size_t y) const { return m_glyphs[y * m_width + x]; }

    void put(std::size_t x, std::size_t y, const std::string& text, Style style = Style::Plain) {
        if (y >= m_height)
            return;
        for (const char character : text)
            if (x < m_width)
                m_glyphs[y * m_width + x++] = {character, style};
    }
    /// A whole line in one style.
    void fill(std::size_t y, Style style) {
        for (std::size_t x = 0; y < m_height && x < m_width; ++x)
            m_glyphs[y * m_width + x] = {' ', style};
    }
    /// A line without the blanks at its end.
    [[nodiscard]] std::string line(std::size_t y) const {
        std::string text;
        for (std::size_t x = 0; x < m_width; ++x)
            text += at(x, y).character;
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    }

private:
    std::size_t m_width;
    std::size_t m_height;
    std::vector<Glyph> m_glyphs;
};

} // namespace tivra_top
