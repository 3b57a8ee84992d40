#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tp {

/// Of the names that are offered, the one that a name which doesn't exist was most likely meant for.
class NearestName {
public:
    explicit NearestName(std::string_view wanted) : m_wanted(wanted) {}

    void offer(std::string_view name) {
        const std::size_t distance = distanceTo(name);
        if (m_best.empty() || distance < m_distance) {
            m_best = name;
            m_distance = distance;
        }
    }
    /// How many characters tell it from what was wanted.
    [[nodiscard]] std::size_t distance() const noexcept { return m_distance; }
    /// The first of the nearest; empty when none was offered.
    [[nodiscard]] const std::string& best() const noexcept { return m_best; }

private:
    /// How many characters have to be put in, taken out or replaced.
    [[nodiscard]] std::size_t distanceTo(std::string_view name) const {
        std::vector<std::size_t> row(name.size() + 1);
        for (std::size_t i = 0; i < row.size(); ++i)
            row[i] = i;
        for (std::size_t i = 0; i < m_wanted.size(); ++i) {
            std::size_t diagonal = row[0];
            row[0] = i + 1;
            for (std::size_t j = 0; j < name.size(); ++j) {
                const std::size_t replaced = diagonal + (m_wanted[i] == name[j] ? 0 : 1);
                diagonal = row[j + 1];
                row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, replaced});
            }
        }
        return row.back();
    }

    const std::string m_wanted;
    std::string m_best;
    std::size_t m_distance = 0;
};

} // namespace tp
