#pragma once

#include <cstddef>
#include <map>

#include "dictionary/TmpToken.h"

namespace tivra_internal {

/// The raw rows of one dictionary version by token number. Belongs to one thread, or to the lock of whoever
/// owns it.
class TokenRows {
public:
    /// A hub may not fill the memory with rows.
    static constexpr std::size_t kMaxRows = 200'000;

    enum class Added {
        Row,       ///< the row is new
        Duplicate, ///< the number is there already; its row stands as it was
        Full       ///< there is no room for a further row
    };

    /// Adds a row and lets `fill(TmpToken&)` complete it, as far as the hub's message goes.
    template<class Fill>
    [[nodiscard]] Added add(int number, Fill&& fill) {
        const auto place = m_rows.lower_bound(number);
        if (place != m_rows.end() && place->first == number)
            return Added::Duplicate;
        if (m_rows.size() >= kMaxRows)
            return Added::Full;
        fill(m_rows.emplace_hint(place, number, TmpToken{})->second);
        return Added::Row;
    }

    [[nodiscard]] std::size_t size() const noexcept { return m_rows.size(); }
    [[nodiscard]] auto begin() const noexcept { return m_rows.begin(); }
    [[nodiscard]] auto end() const noexcept { return m_rows.end(); }
    void clear() noexcept { m_rows.clear(); }

private:
    std::map<int, TmpToken> m_rows;
};

} // namespace tivra_internal
