#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace tivra_cat {

/// Watches a field that counts up by one from message to message of a source, and says how many are missing.
class SequenceCheck {
public:
    /// `field` is a name or a number; empty for no check.
    explicit SequenceCheck(std::string field) : m_field(std::move(field)) {}

    [[nodiscard]] bool isOn() const { return !m_field.empty(); }
    [[nodiscard]] bool isAbout(int token, const std::string& name) const {
        return isOn() && (name == m_field || std::to_string(token) == m_field);
    }

    /// @return the messages missing between the one before and this one; a number that does not go up counts
    ///         as one. @thread user
    [[nodiscard]] std::uint64_t missingBefore(int source, std::int64_t number) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto [last, isFirst] = m_last.try_emplace(source, number);
        if (isFirst)
            return 0;
        const std::int64_t before = last->second;
        last->second = number;
        if (number <= before)
            return 1;
        return static_cast<std::uint64_t>(number) - static_cast<std::uint64_t>(before) - 1;
    }

private:
    const std::string m_field;
    std::mutex m_mutex; ///< guards m_last
    std::map<int, std::int64_t> m_last;
};

} // namespace tivra_cat
