#pragma once

#include "FieldSelection.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_cat {

/// The names of fields that have come from a bus, and what each is wanted for. Whoever writes to the bus may
/// name fields without end: above a limit a further field has no name here.
class BusFields {
public:
    static constexpr std::size_t kMostNames = 100'000;
    static constexpr std::size_t kMostBytes = std::size_t{16} << 20; ///< of names

    struct Entry {
        std::string name;
        int token = 0; ///< fields have no numbers here, and columns want one: below 0
        bool isSelected = false;
    };

    explicit BusFields(const FieldSelection& selection) : m_selection(selection) {}

    /// Null for a name that there is no room for. An entry stays where it is.
    [[nodiscard]] const Entry* entryOf(std::string_view name);
    /// Labels of the selected fields of which nothing has come so far.
    [[nodiscard]] std::vector<std::string> unseen() const;
    /// Values whose fields had no name any more.
    [[nodiscard]] std::uint64_t leftOut() const { return m_leftOut; }

private:
    const FieldSelection& m_selection;
    std::map<std::string, Entry, std::less<>> m_entries;
    std::size_t m_bytes = 0;
    std::uint64_t m_leftOut = 0;
};

} // namespace tivra_cat
