#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tivra_python {

/// What a message was; the numbers are those of kRowKinds.
enum class RowKind : std::int8_t {
    Image,   ///< a part of the present state, which somebody asked for
    Update,  ///< what has changed
    Refresh, ///< the present state, sent without being asked for
    Status   ///< the end of an answer
};

inline constexpr std::string_view kRowKinds[] = {"image", "update", "refresh", "status"};

/// What every row has besides its fields.
struct RowHead {
    /// What a row takes of the columns that it fills.
    static constexpr std::size_t kBytes = 8 + 4 + 4 + 1 + 8 + 4 + 1;

    std::int64_t received = 0; ///< nanoseconds since 1970-01-01 00:00 UTC
    std::int32_t source = 0;   ///< 0 for none
    std::string_view symbol;   ///< needed until RowBuilder::begin returns
    RowKind kind = RowKind::Update;
    std::int64_t tag = 0;
    bool hasTag = false;
    std::int32_t status = 0;
    bool hasStatus = false;
    bool isAfterGap = false; ///< messages of the symbol are missing in front of this one
};

} // namespace tivra_python
