#pragma once

#include "Canvas.h"
#include "View.h"

#include <optional>
#include <utility>

namespace tivra_top {

/// The terminal while the program has the whole of it; given back at the end. Used by the main thread.
class Terminal {
public:
    /// Throws Failure when there is none, or one that can't be drawn on; nothing is changed by it.
    static void check();
    /// Throws as check().
    explicit Terminal(bool wantsColor);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Columns and lines at present.
    [[nodiscard]] std::pair<std::size_t, std::size_t> size();
    void draw(const Canvas& canvas);
    /// The next key that has been pressed, without waiting.
    [[nodiscard]] std::optional<std::pair<Key, char>> key();
    /// Whether the terminal has gone.
    [[nodiscard]] bool isGone() const { return m_isGone; }

private:
    bool m_hasColor = false;
    bool m_isGone = false;
    void* m_screen = nullptr; ///< of ncurses, whose macros stay out of this header
};

} // namespace tivra_top
