#pragma once

#include <cstdint>

namespace tivra_bus {

// The fields of an Arrow stream's tables by their numbers, and what numbers in them mean: those that are
// looked at.

namespace message {
enum : unsigned { HeaderType = 1, Header = 2, BodyLength = 3 };
enum : std::uint8_t { Schema = 1, RecordBatch = 3 };
} // namespace message

namespace schema {
enum : unsigned { Endianness = 0, Fields = 1, Metadata = 2 };
enum : std::int16_t { Little = 0, Big = 1 };
} // namespace schema

namespace field {
enum : unsigned { Name = 0, TypeType = 2, Type = 3, Dictionary = 4, Children = 5, Metadata = 6 };
enum : std::uint8_t { Int = 2, FloatingPoint = 3, Binary = 4, Utf8 = 5, Timestamp = 10, List = 12 };
} // namespace field

namespace pair {
enum : unsigned { Key = 0, Value = 1 };
} // namespace pair

namespace integer {
enum : unsigned { Bits = 0, IsSigned = 1 };
} // namespace integer

namespace floating {
enum : unsigned { Precision = 0 };
enum : std::int16_t { Double = 2 };
} // namespace floating

namespace timestamp {
enum : unsigned { Unit = 0, Zone = 1 };
enum : std::int16_t { Microsecond = 2 };
} // namespace timestamp

namespace record_batch {
enum : unsigned { Length = 0, Nodes = 1, Buffers = 2, Compression = 3 };
} // namespace record_batch

} // namespace tivra_bus
