#pragma once

#include "bus/BusError.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace tivra_bus {

/// A table of a FlatBuffer that may be any bytes. Each look is checked when it is made, and nothing is
/// checked that isn't looked at: tables may refer to each other so that all of them would take for ever.
class FlatTable {
public:
    /// The one that a buffer begins with. @throws BatchError, as all functions do, where it isn't within the
    /// buffer
    explicit FlatTable(std::string_view bytes) : FlatTable(bytes, follow(bytes, 0)) {}

    [[nodiscard]] bool has(unsigned field) const { return placeOf(field) != 0; }
    template<class Number>
    [[nodiscard]] Number number(unsigned field) const {
        const std::size_t place = placeOf(field);
        return place != 0 ? read<Number>(m_bytes, place) : Number{};
    }
    [[nodiscard]] std::optional<FlatTable> table(unsigned field) const {
        const std::size_t place = placeOf(field);
        return place != 0 ? std::optional(FlatTable(m_bytes, follow(m_bytes, place))) : std::nullopt;
    }
    /// Empty where there is none.
    [[nodiscard]] std::string_view text(unsigned field) const {
        const std::size_t place = placeOf(field);
        if (place == 0)
            return {};
        const std::size_t begin = follow(m_bytes, place);
        return within(m_bytes, begin + kOffset, read<std::uint32_t>(m_bytes, begin));
    }
    /// How many entries a vector has; 0 where there is none.
    [[nodiscard]] std::size_t count(unsigned field) const {
        const std::size_t place = placeOf(field);
        return place != 0 ? read<std::uint32_t>(m_bytes, follow(m_bytes, place)) : 0;
    }
    /// An entry of a vector of tables.
    [[nodiscard]] FlatTable tableAt(unsigned field, std::size_t index) const {
        return {m_bytes, follow(m_bytes, entryAt(field, index, kOffset))};
    }
    /// An entry of a vector of pairs of numbers.
    [[nodiscard]] std::array<std::int64_t, 2> pairAt(unsigned field, std::size_t index) const {
        const std::size_t place = entryAt(field, index, 2 * sizeof(std::int64_t));
        return {read<std::int64_t>(m_bytes, place),
                read<std::int64_t>(m_bytes, place + sizeof(std::int64_t))};
    }

private:
    static constexpr std::size_t kOffset = sizeof(std::uint32_t);

    FlatTable(std::string_view bytes, std::size_t place) : m_bytes(bytes), m_place(place) {
        const auto back = read<std::int32_t>(bytes, place);
        const std::int64_t fields = static_cast<std::int64_t>(place) - back;
        if (fields < 0)
            fail();
        m_fields = static_cast<std::size_t>(fields);
        m_fieldsBytes = read<std::uint16_t>(bytes, m_fields);
    }

    [[noreturn]] static void fail() {
        throw BatchError("a batch: an Arrow stream: a table leads out of its message");
    }
    [[nodiscard]] static std::string_view within(std::string_view bytes, std::size_t place,
                                                 std::size_t length) {
        if (place > bytes.size() || length > bytes.size() - place)
            fail();
        return bytes.substr(place, length);
    }
    template<class Number>
    [[nodiscard]] static Number read(std::string_view bytes, std::size_t place) {
        std::array<char, sizeof(Number)> content{};
        std::memcpy(content.data(), within(bytes, place, content.size()).data(), content.size());
        if (std::endian::native == std::endian::big)
            std::reverse(content.begin(), content.end());
        return std::bit_cast<Number>(content);
    }
    [[nodiscard]] static std::size_t follow(std::string_view bytes, std::size_t place) {
        return place + read<std::uint32_t>(bytes, place);
    }
    /// Where a field is; 0 for one that isn't there.
    [[nodiscard]] std::size_t placeOf(unsigned field) const {
        const std::size_t entry = (2 + std::size_t{field}) * sizeof(std::uint16_t);
        if (entry + sizeof(std::uint16_t) > m_fieldsBytes)
            return 0;
        const auto offset = read<std::uint16_t>(m_bytes, m_fields + entry);
        return offset != 0 ? m_place + offset : 0;
    }
    [[nodiscard]] std::size_t entryAt(unsigned field, std::size_t index, std::size_t bytes) const {
        if (index >= count(field))
            fail();
        return follow(m_bytes, placeOf(field)) + kOffset + index * bytes;
    }

    std::string_view m_bytes;
    std::size_t m_place;
    std::size_t m_fields = 0; ///< where the table says which fields it has
    std::size_t m_fieldsBytes = 0;
};

} // namespace tivra_bus
