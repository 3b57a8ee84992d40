#pragma once

#include "columns/ArrowAbi.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tivra_python {

/// Looks at one column of an array that somebody else holds: integers of 32 or 64 bits, doubles, truth
/// values, texts with 32-bit offsets and times in nanoseconds.
class ArrowCells {
public:
    enum class Kind { Int32, Int64, Double, Bool, Text, Time, Other };

    ArrowCells(const ArrowSchema& schema, const ArrowArray& array)
        : m_kind(kindOf(schema.format)), m_name(schema.name != nullptr ? schema.name : ""), m_array(&array) {}

    [[nodiscard]] Kind kind() const noexcept { return m_kind; }
    [[nodiscard]] std::string_view name() const noexcept { return m_name; }

    [[nodiscard]] bool isNull(std::int64_t row) const {
        return m_array->buffers[0] != nullptr && !bit(0, row);
    }
    [[nodiscard]] bool boolean(std::int64_t row) const { return bit(1, row); }
    [[nodiscard]] std::int64_t integer(std::int64_t row) const {
        return m_kind == Kind::Int32 ? value<std::int32_t>(row) : value<std::int64_t>(row);
    }
    [[nodiscard]] double number(std::int64_t row) const { return value<double>(row); }
    [[nodiscard]] std::string_view text(std::int64_t row) const {
        const auto from = value<std::int32_t>(row);
        const auto* const bytes = static_cast<const char*>(m_array->buffers[2]);
        return {bytes + from, static_cast<std::size_t>(value<std::int32_t>(row + 1) - from)};
    }

private:
    [[nodiscard]] static Kind kindOf(std::string_view format) {
        return format == "i"                ? Kind::Int32
               : format == "l"              ? Kind::Int64
               : format == "g"              ? Kind::Double
               : format == "b"              ? Kind::Bool
               : format == "u"              ? Kind::Text
               : format.starts_with("tsn:") ? Kind::Time
                                            : Kind::Other;
    }
    [[nodiscard]] bool bit(int buffer, std::int64_t row) const {
        const std::int64_t position = m_array->offset + row;
        return (static_cast<const std::uint8_t*>(m_array->buffers[buffer])[position / 8] >> position % 8 &
                1) != 0;
    }
    template<class T>
    [[nodiscard]] T value(std::int64_t row) const {
        return static_cast<const T*>(m_array->buffers[1])[m_array->offset + row];
    }

    Kind m_kind;
    std::string_view m_name;
    const ArrowArray* m_array;
};

} // namespace tivra_python
