#include <feed/Value.h>

#include <cmath>
#include <limits>

#include <feed/Error.h>

#include "kvnparse/NumericText.h"

namespace tivra {
namespace {

constexpr double kMicroseconds = 1e6;

[[nodiscard]] const char* nameOf(Value::Type type) noexcept {
    switch (type) {
    case Value::Type::Integer:
        return "an integer";
    case Value::Type::Double:
        return "a double";
    case Value::Type::Text:
        return "a text";
    case Value::Type::Time:
        return "a time";
    }
    return "a value";
}

} // namespace

Value Value::ofInteger(std::int64_t value) noexcept {
    Value made;
    made.m_content.integer = value;
    return made;
}

Value Value::ofDouble(double value) noexcept {
    Value made;
    made.m_type = Type::Double;
    made.m_content.number = value;
    return made;
}

Value Value::ofText(std::string_view value) noexcept {
    Value made;
    made.m_type = Type::Text;
    made.m_content.text = {value.data(), value.size()};
    return made;
}

Value Value::ofTime(double seconds) noexcept {
    Value made;
    made.m_type = Type::Time;
    made.m_content.number = seconds;
    return made;
}

void Value::throwWrongType(const char* wanted) const {
    const std::string text = m_type == Type::Text ? ", \"" + toText().substr(0, 40) + "\"" : " " + toText();
    throw Error({Error::Code::WrongType, Error::Phase::None,
                 std::string("the field holds ") + nameOf(m_type) + text + ", not " + wanted,
                 "ask for the type that Value::type() gives", "", 0, "", 0});
}

std::string Value::toText() const {
    char room[KVNAPI::kNumberTextMax];
    switch (m_type) {
    case Type::Integer:
        return {room, KVNAPI::i64toa(room, m_content.integer)};
    case Type::Double:
    case Type::Time:
        return {room, KVNAPI::dtoa(room, m_content.number)};
    case Type::Text:
        break;
    }
    return {m_content.text.begin, m_content.text.length};
}

TimePoint Value::toTimePoint() const {
    const double micros = std::round(m_content.number * kMicroseconds);
    constexpr auto kMost = static_cast<double>(std::numeric_limits<std::int64_t>::max()) / 2;
    const bool fits = micros > -kMost && micros < kMost; // not for NaN either
    return TimePoint(std::chrono::microseconds(fits ? static_cast<std::int64_t>(micros) : 0));
}

DateTime Value::toDateTime() const {
    return DateTime(m_content.number);
}

} // namespace tivra
