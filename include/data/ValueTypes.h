#pragma once

namespace tivra {

/// The types of a field's value, as MessageReader::getValueType tells them.
enum ValueTypes : int {
    UNKNOWN = 0, ///< not on a field, or of a type that this version doesn't know
    INT64 = 1,   ///< a signed 64-bit integer; flags are 0 and 1
    STRING = 2,  ///< a text
    DOUBLE = 3,  ///< a floating-point number
    DATETIME = 4 ///< a date, a time or both: seconds since 1970-01-01 00:00 UTC with a fraction
};

} // namespace tivra
