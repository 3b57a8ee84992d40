#pragma once

#include <string>

namespace tivra_python {

/// What a column of a field holds.
enum class ColumnType {
    Found, ///< what the first value is; a column without any goes out as Text
    Int64,
    Double,
    Text, ///< UTF-8
    Time  ///< nanoseconds since 1970-01-01 00:00 UTC
};

/// A field that gets a column.
struct ColumnSpec {
    std::string name;
    ColumnType type = ColumnType::Found;
};

} // namespace tivra_python
