#include "session/routing/RegExpression.h"

#include <tp/eprintf.h>

#include "LogLimits.h"
#include "session/routing/PatternLimits.h"

namespace tivra_internal {
namespace {

// A pattern in the log is cut to what a usable one can have.

} // namespace

RegExpression& RegExpression::operator=(const RegExpression& other) {
    if (this != &other) {
        const std::string text = other.get();
        set(text.c_str());
    }
    return *this;
}

void RegExpression::clear() {
    m_regex.reset();
    m_expression.clear();
}

void RegExpression::compile(const char* text) {
    if (isSet())
        clear();
    m_expression += text;
    constexpr int kFlags = REG_EXTENDED | REG_ICASE | REG_NOSUB;
    int error = REG_ESPACE;
    auto compiled = std::make_unique<regex_t>();
    if (patternCost(m_expression))
        error = ::regcomp(compiled.get(), m_expression.c_str(), kFlags);
    if (error != 0) {
        eprintf(EPF_CRIT, "regcomp failure - Error Code:%d Expression=\"%.*s\"", error,
                static_cast<int>(kMaxLoggedText), m_expression.c_str());
        return;
    }
    m_regex = std::shared_ptr<regex_t>(compiled.release(), [](regex_t* regex) {
        ::regfree(regex);
        std::default_delete<regex_t>()(regex);
    });
}

void RegExpression::set(const char* text) {
    clear();
    compile(text);
}

bool RegExpression::match(const char* text) const {
    return m_regex != nullptr && ::regexec(m_regex.get(), text, 0, nullptr, 0) == 0;
}

} // namespace tivra_internal
