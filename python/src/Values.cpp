#include "Values.h"

#include <cmath>
#include <string>

#include <datetime.h>

#include "Errors.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

using Microseconds = std::chrono::microseconds;

/// Null for a time that datetime can't hold.
[[nodiscard]] nb::object makeDatetime(tivra::TimePoint time) {
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const int year = static_cast<int>(date.year());
    if (year < 1 || year > 9999)
        return {};
    if (PyDateTimeAPI == nullptr)
        PyDateTime_IMPORT;
    const std::chrono::hh_mm_ss<Microseconds> clock(time - day);
    return nb::steal(PyDateTimeAPI->DateTime_FromDateAndTime(
        year, static_cast<int>(static_cast<unsigned>(date.month())),
        static_cast<int>(static_cast<unsigned>(date.day())), static_cast<int>(clock.hours().count()),
        static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
        static_cast<int>(clock.subseconds().count()), PyDateTimeAPI->TimeZone_UTC,
        PyDateTimeAPI->DateTimeType));
}

} // namespace

nb::str toStr(std::string_view text) {
    PyObject* const object =
        PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "backslashreplace");
    if (object == nullptr)
        throw nb::python_error();
    return nb::steal<nb::str>(object);
}

nb::object toName(std::string_view name) {
    PyObject* object = toStr(name).release().ptr();
    PyUnicode_InternInPlace(&object);
    return nb::steal(object);
}

nb::object toObject(const tivra::Value& value) {
    switch (value.type()) {
    case tivra::Value::Type::Integer:
        return nb::steal(PyLong_FromLongLong(value.as<std::int64_t>()));
    case tivra::Value::Type::Double:
        return nb::steal(PyFloat_FromDouble(value.as<double>()));
    case tivra::Value::Type::Text:
        return toStr(value.as<std::string_view>());
    case tivra::Value::Type::Time:
        break;
    }
    nb::object time = makeDatetime(value.as<tivra::TimePoint>());
    return time.is_valid() ? time : nb::object(toStr(value.as<std::string>()));
}

nb::dict toDict(const tivra::Record& record) {
    nb::dict fields;
    for (const auto& [field, value] : record)
        if (PyDict_SetDefault(fields.ptr(), toName(field.name()).ptr(), toObject(value).ptr()) == nullptr)
            throw nb::python_error();
    return fields;
}

nb::object findIn(const tivra::Record& record, std::string_view name) {
    for (const auto& [field, value] : record)
        if (field.name() == name)
            return toObject(value);
    return {};
}

nb::object toDatetime(std::chrono::system_clock::time_point time) {
    nb::object made = makeDatetime(std::chrono::floor<Microseconds>(time));
    return made.is_valid() ? made : nb::none();
}

std::int64_t toNanoseconds(std::chrono::system_clock::time_point time) noexcept {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

std::chrono::nanoseconds toDuration(double seconds) {
    constexpr double kLongest = 1e9; // what fits
    if (!(seconds >= 0))
        raiseInvalid("a time has to be 0 or more seconds", "give a number of seconds, such as 0.5");
    return std::chrono::nanoseconds(static_cast<std::int64_t>(std::min(seconds, kLongest) * 1e9));
}

} // namespace tivra_python
