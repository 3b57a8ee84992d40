#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

#include <nanobind/nanobind.h>

#include <feed/Record.h>
#include <feed/Value.h>

/// @file
/// Values of fields as objects of Python. All with the interpreter's lock.

namespace tivra_python {

/// Bytes that are no UTF-8 become "\xNN".
[[nodiscard]] nanobind::str toStr(std::string_view text);
/// The same, shared by all objects with that text: for names of fields.
[[nodiscard]] nanobind::object toName(std::string_view name);
/// An int, a float, a str or a datetime in UTC. A time that datetime can't hold is a str.
[[nodiscard]] nanobind::object toObject(const tivra::Value& value);
/// A dict, in the order of the record. Of a field that it has several times, the first.
[[nodiscard]] nanobind::dict toDict(const tivra::Record& record);
/// The field's value in the record, or a null object. Of a field that it has several times, the first.
[[nodiscard]] nanobind::object findIn(const tivra::Record& record, std::string_view name);

[[nodiscard]] nanobind::object toDatetime(std::chrono::system_clock::time_point time);
[[nodiscard]] std::int64_t toNanoseconds(std::chrono::system_clock::time_point time) noexcept;

/// A number of seconds, not below 0; None for `otherwise`. @throws tivra::Error (InvalidArgument)
[[nodiscard]] std::chrono::nanoseconds toDuration(double seconds);

} // namespace tivra_python
