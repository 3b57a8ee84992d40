#pragma once

#include <string>

namespace tp {

/// Overwrites a text, and what it may have had beyond its end, so that no dump of the memory shows it.
/// Afterwards it is empty. Copies that others have made stay.
void wipe(std::string& text) noexcept;

/// Wipes a text at the end of a scope.
class WipedAtEnd {
public:
    explicit WipedAtEnd(std::string& text) noexcept : m_text(text) {}
    ~WipedAtEnd() { wipe(m_text); }
    WipedAtEnd(const WipedAtEnd&) = delete;
    WipedAtEnd& operator=(const WipedAtEnd&) = delete;

private:
    std::string& m_text;
};

} // namespace tp
