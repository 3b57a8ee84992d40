#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "TivraApi.h"
#include "data/DateTime.h"

namespace tivra {

/// Times of values, in UTC. A hub gives them to the nearest 10 microseconds or so.
using TimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

/// The value of one field. A text belongs to the update or record that the value comes from, and lives as
/// long.
class TIVRA_API Value {
public:
    /// How the feed's dictionary types a value; as() says which C++ types each can be read as.
    enum class Type {
        Integer, ///< signed, of 64 bits; flags and enumerated fields too
        Double,  ///< a floating-point number
        Text,    ///< bytes as the hub has sent them
        Time     ///< a date, a time or both, in UTC
    };

    /// The Integer 0.
    Value() noexcept : m_type(Type::Integer) { m_content.integer = 0; }
    /// An Integer.
    static Value ofInteger(std::int64_t value) noexcept;
    /// A Double.
    static Value ofDouble(double value) noexcept;
    /// A Text, which isn't copied: it has to live as long as the value and its copies.
    static Value ofText(std::string_view value) noexcept;
    /// A Time.
    /// @param seconds  since 1970-01-01 00:00 UTC
    static Value ofTime(double seconds) noexcept;

    /// Which type it has.
    Type type() const noexcept { return m_type; }

    /// The value as a C++ type:
    /// - an integer type or bool, of an Integer that fits;
    /// - double or float, of a Double or an Integer;
    /// - std::string_view, of a Text; std::string, of any type;
    /// - tivra::TimePoint or tivra::DateTime, of a Time.
    /// @throws Error (WrongType) where that doesn't fit
    template<class T>
    T as() const;

private:
    [[noreturn]] void throwWrongType(const char* wanted) const;
    std::string toText() const;
    TimePoint toTimePoint() const;
    DateTime toDateTime() const;
    void require(Type type, const char* wanted) const {
        if (m_type != type)
            throwWrongType(wanted);
    }
    template<class T>
    T toInteger() const;

    /// @cond
    struct Text {
        const char* begin;
        std::size_t length;
    };
    union Content {
        std::int64_t integer;
        double number;
        Text text;
    };
    /// @endcond
    Type m_type;
    Content m_content;
};

template<class T>
T Value::toInteger() const {
    require(Type::Integer, "an integer");
    const std::int64_t value = m_content.integer;
    if constexpr (std::is_same_v<T, bool>) {
        return value != 0;
    } else if constexpr (std::is_unsigned_v<T>) {
        if (value < 0 || static_cast<std::uint64_t>(value) > std::numeric_limits<T>::max())
            throwWrongType("a smaller integer");
    } else {
        if (value < std::numeric_limits<T>::min() || value > std::numeric_limits<T>::max())
            throwWrongType("a smaller integer");
    }
    return static_cast<T>(value);
}

template<class T>
T Value::as() const {
    if constexpr (std::is_integral_v<T>) {
        return toInteger<T>();
    } else if constexpr (std::is_floating_point_v<T>) {
        if (m_type == Type::Integer)
            return static_cast<T>(m_content.integer);
        require(Type::Double, "a number");
        return static_cast<T>(m_content.number);
    } else if constexpr (std::is_same_v<T, std::string_view>) {
        require(Type::Text, "a text");
        return {m_content.text.begin, m_content.text.length};
    } else if constexpr (std::is_same_v<T, std::string>) {
        return toText();
    } else if constexpr (std::is_same_v<T, DateTime>) {
        require(Type::Time, "a time");
        return toDateTime();
    } else {
        static_assert(std::is_same_v<T, TimePoint>, "a field is an integer, a double, a text or a time");
        require(Type::Time, "a time");
        return toTimePoint();
    }
}

} // namespace tivra
