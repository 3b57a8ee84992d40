#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace tivra_cat {

/// Watches a field that counts up by one from message to message of a source, and finds where it doesn't.
class SequenceCheck {
public:
    /// Two numbers of a source that came after each other though they don't follow each other.
    struct Break {
        std::int64_t after = 0;
        std::int64_t before = 0;

        /// The numbers began anew: how many messages are missing, if any, can't be known.
        [[nodiscard]] bool isRestart() const { return before <= after; }
        /// Messages that are missing where the numbers go on.
        [[nodiscard]] std::uint64_t missing() const {
            return isRestart() ? 0
                               : static_cast<std::uint64_t>(before) - static_cast<std::uint64_t>(after) - 1;
        }
    };

    /// `field` is a name or a number; empty for no check.
    explicit SequenceCheck(std::string field) : m_field(std::move(field)) {}

    [[nodiscard]] bool isOn() const { return !m_field.empty(); }
    [[nodiscard]] bool isAbout(int token, const std::string& name) const {
        return isOn() && (name == m_field || std::to_string(token) == m_field);
    }

    /// @return the break between the number before and this one, if there is one. @thread user
    [[nodiscard]] std::optional<Break> look(int source, std::int64_t number) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto [last, isFirst] = m_last.try_emplace(source, number);
        const Break step{last->second, number};
        last->second = number;
        if (isFirst || (!step.isRestart() && step.missing() == 0))
            return std::nullopt;
        return step;
    }

private:
    const std::string m_field;
    std::mutex m_mutex; ///< guards m_last
    std::map<int, std::int64_t> m_last;
};

} // namespace tivra_cat
