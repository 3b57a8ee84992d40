#pragma once

#include "bus/ArrowColumn.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

namespace tivra_bus {

/// A column of an Arrow stream, read: where its values are in the message, which has been checked.
struct ArrowValues {
    const char* validity = nullptr; ///< a bit for each row; null where all have a value
    const char* lists = nullptr;    ///< offsets; null where a row has one value
    const char* texts = nullptr;    ///< offsets; null of numbers
    const char* data = nullptr;

    [[nodiscard]] bool has(std::size_t row) const {
        return validity == nullptr ||
               (static_cast<unsigned>(static_cast<unsigned char>(validity[row / 8])) >> (row % 8) & 1U) != 0;
    }
    /// The first value of the row, and the one after its last.
    [[nodiscard]] std::pair<std::size_t, std::size_t> range(std::size_t row) const {
        return lists == nullptr ? std::pair(row, row + 1)
                                : std::pair(offset(lists, row), offset(lists, row + 1));
    }
    template<class Number>
    [[nodiscard]] Number number(std::size_t value) const {
        Number number;
        std::memcpy(&number, data + value * sizeof number, sizeof number);
        return number;
    }
    [[nodiscard]] std::string_view text(std::size_t value) const {
        const std::size_t begin = offset(texts, value), end = offset(texts, value + 1);
        return end == begin ? std::string_view() : std::string_view(data + begin, end - begin);
    }

private:
    [[nodiscard]] static std::size_t offset(const char* offsets, std::size_t index) {
        std::int32_t offset = 0;
        std::memcpy(&offset, offsets + index * sizeof offset, sizeof offset);
        return static_cast<std::size_t>(offset);
    }
};

} // namespace tivra_bus
