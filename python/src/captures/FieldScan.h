#pragma once

#include <cstddef>
#include <set>
#include <string_view>
#include <vector>

namespace tivra_python {

/// Finds which fields occur in messages, without decoding their values. One thread at a time.
class FieldScan {
public:
    /// Fields that a table may have; a file of noise would otherwise make columns without end.
    static constexpr std::size_t kMaxFields = 4096;

    FieldScan();

    void add(std::string_view body);

    /// The numbers of the fields, in ascending order.
    [[nodiscard]] const std::set<int>& numbers() const noexcept { return m_numbers; }
    /// Those that came without a value, which takes the last one of a number away.
    [[nodiscard]] const std::set<int>& emptied() const noexcept { return m_emptied; }
    /// Whether there were more than kMaxFields.
    [[nodiscard]] bool isOverflown() const noexcept { return m_isOverflown; }

private:
    void note(int number, bool isEmpty);

    std::vector<bool> m_isKnown; ///< of the small numbers, which are nearly all
    std::set<int> m_numbers;
    std::set<int> m_emptied;
    bool m_isOverflown = false;
};

} // namespace tivra_python
