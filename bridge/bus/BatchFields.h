#pragma once

#include <feed/FieldNumbers.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_bus {

/// The fields that the bodies of a batch have, by their numbers: what a reader needs for them, whichever
/// dictionary the hub has by then. One batch has the numbers of one dictionary. @thread one at a time
class BatchFields {
public:
    /// Adds those of a body. @return false for one that needs another dictionary or that isn't fields with
    /// known numbers
    [[nodiscard]] bool add(const tivra::FieldNumbers& numbers, std::string_view body);

    /// The line of the batch, its end included.
    [[nodiscard]] std::string line() const;
    [[nodiscard]] std::size_t lineBytes() const;
    void clear();

private:
    [[nodiscard]] bool add(const tivra::FieldNumbers& numbers, std::uint32_t number);

    std::uint64_t m_dictionary = 0; ///< of no meaning while there are no fields
    std::vector<std::uint32_t> m_numbers;
    std::vector<bool> m_isIn; ///< by number
    std::string m_text;       ///< members, each with a comma before it
};

} // namespace tivra_bus
