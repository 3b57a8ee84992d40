#pragma once

#include "bus/ArrowColumn.h"

#include <array>
#include <cstddef>

namespace tivra_bus {

/// The columns of what records say besides the values of fields: the members of a record in JSON.
enum class RecordColumn : std::size_t {
    Type,
    Source,
    Symbol,
    Number,
    State,
    Cause,
    From,
    To,
    Messages,
    Bytes
};

struct RecordColumnType {
    const char* name;
    ArrowKind kind;
};

/// In the order of RecordColumn.
inline constexpr std::array kRecordColumns{
    RecordColumnType{"type", ArrowKind::Text},       RecordColumnType{"source", ArrowKind::Int32},
    RecordColumnType{"symbol", ArrowKind::Text},     RecordColumnType{"n", ArrowKind::UInt64},
    RecordColumnType{"state", ArrowKind::Text},      RecordColumnType{"cause", ArrowKind::Text},
    RecordColumnType{"from", ArrowKind::Time},       RecordColumnType{"to", ArrowKind::Time},
    RecordColumnType{"messages", ArrowKind::UInt64}, RecordColumnType{"bytes", ArrowKind::UInt64}};
/// Those that every batch has, the first ones.
inline constexpr std::size_t kAlwaysThere = 4;

/// More columns than that aren't read, and so not written.
inline constexpr std::size_t kMostColumns = 8192;
/// The key of the batch's header in the metadata of the schema, and of a field's name in those of a column
/// that is called otherwise.
inline constexpr const char* kHeaderKey = "tivra";
inline constexpr const char* kFieldKey = "field";

} // namespace tivra_bus
