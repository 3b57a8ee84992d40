#pragma once

#include <memory>
#include <regex.h>
#include <string>

namespace tivra_internal {

/// A POSIX pattern from a hub, matched without regard to case. Copies share the compiled pattern. A pattern
/// that could take unreasonable time or memory is refused like one that does not compile. @thread any, one at
/// a time
class RegExpression {
public:
    RegExpression() = default;
    RegExpression(const RegExpression&) = default;
    /// Compiles the other's text anew.
    RegExpression& operator=(const RegExpression& other);
    ~RegExpression() = default;

    void clear();
    void compile(const char* text);
    void set(const char* text);
    [[nodiscard]] bool isSet() const { return m_regex != nullptr; }
    [[nodiscard]] const std::string& get() const { return m_expression; }
    /// False when the pattern did not compile.
    [[nodiscard]] bool match(const char* text) const;

private:
    std::shared_ptr<regex_t> m_regex; ///< null until compiled
    std::string m_expression;
};

} // namespace tivra_internal
