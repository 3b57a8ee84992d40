#include "session/RegExpression.h"

#include <cctype>
#include <cstddef>
#include <cstdlib>

#include <tp/eprintf.h>

namespace tivra_internal {
namespace {

// The matcher's cost grows with nesting and repetition, and the pattern comes from outside.
constexpr std::size_t kMaxPatternLength = 4096;
constexpr int kMaxNesting = 32;
constexpr long kMaxBound = 255;

/// Reads the numbers of a "{m,n}" bound that starts at `at`; true when `at` starts a bound at all.
bool readBound(const std::string& text, std::size_t at, long& highest) {
    highest = 0;
    const std::size_t end = text.find('}', at);
    if (end == std::string::npos || end == at + 1)
        return false;
    for (std::size_t i = at + 1; i < end; ++i) {
        const char c = text[i];
        if (c != ',' && std::isdigit(static_cast<unsigned char>(c)) == 0)
            return false;
        if (c != ',' && (i == at + 1 || text[i - 1] == ',')) {
            const long value = std::strtol(text.c_str() + i, nullptr, 10);
            highest = value > highest ? value : highest;
        }
    }
    return true;
}

/// True when the pattern stays within the limits on length, nesting and repetition.
bool isBounded(const std::string& text) {
    if (text.size() > kMaxPatternLength)
        return false;
    int depth = 0;
    bool holdsBound[kMaxNesting + 2] = {}; // per open group: a bound stands inside it
    bool closedGroupHeldBound = false;
    bool inBrackets = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool afterGroup = i > 0 && text[i - 1] == ')';
        if (c == '\\' && !inBrackets) {
            ++i;
        } else if (inBrackets) {
            inBrackets = c != ']';
        } else if (c == '[') {
            inBrackets = true;
            if (i + 1 < text.size() && text[i + 1] == '^')
                ++i;
            if (i + 1 < text.size() && text[i + 1] == ']')
                ++i;
        } else if (c == '(') {
            if (++depth > kMaxNesting)
                return false;
            holdsBound[depth] = false;
        } else if (c == ')' && depth > 0) {
            closedGroupHeldBound = holdsBound[depth];
            --depth;
            holdsBound[depth] = holdsBound[depth] || closedGroupHeldBound;
        } else if (c == '{') {
            long highest = 0;
            if (!readBound(text, i, highest))
                continue;
            if (highest > kMaxBound || (afterGroup && closedGroupHeldBound))
                return false;
            holdsBound[depth] = true;
        }
    }
    return true;
}

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
    if (isBounded(m_expression))
        error = ::regcomp(compiled.get(), m_expression.c_str(), kFlags);
    if (error != 0) {
        eprintf(EPF_CRIT, "regcomp failure - Error Code:%d Expression=\"%.*s\"", error,
                static_cast<int>(kMaxPatternLength), m_expression.c_str());
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
