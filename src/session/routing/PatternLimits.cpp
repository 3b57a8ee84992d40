#include "session/routing/PatternLimits.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace tivra_internal {
namespace {

constexpr std::size_t kMaxPatternLength = 4096;
constexpr std::size_t kMaxNesting = 32;
constexpr std::size_t kMaxBound = 255;
// The matcher copies what is repeated, so nested or stacked repetitions multiply.
constexpr std::size_t kMaxAtoms = 8192;
// What may be left out or repeated in a row: compiling takes time with the cube of it.
constexpr std::size_t kMaxLoose = 512;
constexpr std::string_view kAnchorEscapes = "bB<>`'";
// For each anchor the matcher copies all that can follow it, the copies of other anchors included.
constexpr std::size_t kMaxAnchors = 8;

/// A part of a pattern after its repetitions have been copied out.
struct Extent {
    std::size_t atoms = 0;
    std::size_t loose = 0;        ///< of these, places where the matcher can go on in more than one way
    std::size_t anchors = 0;      ///< that one way through it can meet
    std::size_t allAnchors = 0;   ///< on any way; a repetition can meet them all
    std::size_t worstAnchors = 0; ///< of the alternatives that are complete
    bool holdsBound = false;

    void add(const Extent& other) {
        atoms += other.atoms;
        loose += other.loose;
        anchors += other.anchors;
        allAnchors += other.allAnchors;
        holdsBound = holdsBound || other.holdsBound;
    }
    void repeat(std::size_t copies) {
        atoms = std::max<std::size_t>(atoms, 1) * copies;
        loose = (loose + 1) * copies;
        allAnchors *= copies;
        anchors = allAnchors;
    }
    [[nodiscard]] bool isWithinLimits() const {
        return atoms <= kMaxAtoms && loose <= kMaxLoose && anchors <= kMaxAnchors;
    }
};

/// One walk over a pattern.
class PatternWalk {
public:
    explicit PatternWalk(const std::string& text) : m_text(text), m_groups(1) {}

    std::optional<std::size_t> cost() {
        if (m_text.size() > kMaxPatternLength)
            return std::nullopt;
        for (; m_at < m_text.size(); ++m_at) {
            if (!step() || !m_last.isWithinLimits() || !m_groups.back().isWithinLimits())
                return std::nullopt;
        }
        endOfBranch();
        if (m_atoms > kMaxAtoms)
            return std::nullopt;
        return m_atoms + m_worstLoose * m_worstLoose;
    }

private:
    bool step() {
        switch (m_text[m_at]) {
        case '\\':
            // Matching takes exponential time as soon as a group is referred to.
            if (std::isdigit(static_cast<unsigned char>(charAt(m_at + 1))) != 0)
                return false;
            ++m_at;
            atom();
            if (kAnchorEscapes.find(charAt(m_at)) != std::string_view::npos)
                m_last.anchors = m_last.allAnchors = 1;
            return true;
        case '^':
        case '$':
            atom();
            m_last.anchors = m_last.allAnchors = 1;
            return true;
        case '[':
            atom();
            return skipBrackets();
        case '(':
            settle();
            m_groups.emplace_back();
            return m_groups.size() <= kMaxNesting + 1;
        case ')':
            endOfGroup();
            return true;
        case '|':
            if (m_groups.size() == 1)
                endOfBranch();
            else
                nextAlternative();
            return true;
        case '+':
            m_last.repeat(2);
            return true;
        case '*':
        case '?':
            m_last.repeat(1);
            return true;
        case '{':
            return bound();
        default:
            atom();
            return true;
        }
    }

    [[nodiscard]] char charAt(std::size_t at) const { return at < m_text.size() ? m_text[at] : '\0'; }

    void settle() {
        m_groups.back().add(m_last);
        m_last = {};
    }

    void atom() {
        settle();
        m_last.atoms = 1;
    }

    void endOfGroup() {
        if (m_groups.size() == 1)
            return atom();
        nextAlternative();
        m_last = m_groups.back();
        m_last.anchors = m_last.worstAnchors;
        m_groups.pop_back();
    }

    void nextAlternative() {
        settle();
        Extent& group = m_groups.back();
        group.worstAnchors = std::max(group.worstAnchors, group.anchors);
        group.anchors = 0;
    }

    /// The branches of the whole pattern stand beside each other, so the worst one counts. Within a group a
    /// repetition can lead from one to the next.
    void endOfBranch() {
        settle();
        m_atoms += m_groups.back().atoms;
        m_worstLoose = std::max(m_worstLoose, m_groups.back().loose);
        m_groups.back() = {};
    }

    /// Leaves the place at the closing bracket; false when there is none.
    bool skipBrackets() {
        ++m_at;
        if (charAt(m_at) == '^')
            ++m_at;
        for (bool isFirst = true; m_at < m_text.size(); ++m_at, isFirst = false) {
            const char kind = charAt(m_at + 1);
            if (m_text[m_at] == ']' && !isFirst)
                return true;
            if (m_text[m_at] != '[' || (kind != '.' && kind != '=' && kind != ':'))
                continue;
            // A class or an element by name may hold brackets itself.
            const std::size_t end = m_text.find(std::string{kind, ']'}, m_at + 2);
            if (end == std::string::npos)
                return false;
            m_at = end + 1;
        }
        return false;
    }

    /// "{m}", "{m,}" or "{m,n}"; anything else is left to the compiler.
    bool bound() {
        const std::size_t end = m_text.find('}', m_at);
        const std::string numbers = m_text.substr(m_at + 1, end == std::string::npos ? end : end - m_at - 1);
        if (end == std::string::npos || numbers.find_first_not_of("0123456789,") != std::string::npos) {
            atom();
            return true;
        }
        const std::size_t comma = numbers.find(',');
        const std::size_t least = number(numbers);
        const std::size_t most = comma == std::string::npos ? least : number(numbers.substr(comma + 1));
        if (least > kMaxBound || most > kMaxBound || m_last.holdsBound)
            return false;
        m_at = end;
        m_last.repeat(std::max(least, most) + 1);
        m_last.holdsBound = true;
        return true;
    }

    static std::size_t number(const std::string& digits) { return std::strtoul(digits.c_str(), nullptr, 10); }

    const std::string& m_text;
    std::vector<Extent> m_groups; ///< the pattern and the groups that are open
    Extent m_last;                ///< what a repetition would apply to
    std::size_t m_at = 0;
    std::size_t m_atoms = 0;
    std::size_t m_worstLoose = 0;
};

} // namespace

std::optional<std::size_t> patternCost(const std::string& text) {
    return PatternWalk(text).cost();
}

} // namespace tivra_internal
