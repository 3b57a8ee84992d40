#pragma once

#include <string>

namespace tivra_cat {

/// Standard error as the main thread uses it: lines that stay, and one line of progress that is written over.
class Console {
public:
    explicit Console(bool showsProgress) : m_showsProgress(showsProgress) {}
    ~Console() { clearProgress(); }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// A line of its own, with the program's name before it.
    void line(const std::string& text);
    /// Lines as they are, for programs that read them; `text` ends its last one.
    void block(const std::string& text);
    /// Replaces the line of progress; nothing when it is off.
    void progress(const std::string& text);
    [[nodiscard]] bool showsProgress() const { return m_showsProgress; }

private:
    void clearProgress();

    const bool m_showsProgress;
    bool m_hasProgress = false;
};

} // namespace tivra_cat
