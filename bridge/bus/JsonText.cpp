#include "bus/JsonText.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace tivra_bus {

namespace {

constexpr int kPriceDecimals = 4;
constexpr std::uint64_t kPriceUnits = 10'000;
constexpr double kPriceScale = 1e4;
/// Fifteen digits: no two texts of so many are the same double.
constexpr double kMostScaled = 1e15;

bool needsNoEscape(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte < 0x80 && c != '"' && c != '\\';
}

template<class Number>
char* putDigits(char* to, Number number) {
    return std::to_chars(to, to + kMostPut, number).ptr;
}

/// `number` with so many digits.
char* putPadded(char* to, unsigned number, int digits) {
    for (int i = digits - 1; i >= 0; --i, number /= 10)
        to[i] = static_cast<char>('0' + number % 10);
    return to + digits;
}

/// Puts a number of few decimals, as prices are: nothing else has to be tried for it, since only one number
/// of so few digits is this one. @return null for another
char* putPrice(char* to, double number) {
    const double scaled = number * kPriceScale;
    if (!(std::abs(scaled) < kMostScaled) || number == 0.0)
        return nullptr;
    const auto whole = static_cast<std::int64_t>(std::llrint(scaled));
    if (static_cast<double>(whole) / kPriceScale != number)
        return nullptr;
    const auto digits = static_cast<std::uint64_t>(whole < 0 ? -whole : whole);
    if (whole < 0)
        *to++ = '-';
    to = putDigits(to, digits / kPriceUnits);
    *to++ = '.';
    to = putPadded(to, static_cast<unsigned>(digits % kPriceUnits), kPriceDecimals);
    while (to[-1] == '0' && to[-2] != '.')
        --to;
    return to;
}

/// "2013-10-07T13:30:00".
std::string secondText(std::chrono::sys_seconds second) {
    using namespace std::chrono;
    const sys_days day = floor<days>(second);
    const year_month_day date(day);
    const hh_mm_ss clock(second - day);
    char text[kMostPut];
    const int year = static_cast<int>(date.year());
    char* to =
        year >= 0 && year <= 9999 ? putPadded(text, static_cast<unsigned>(year), 4) : putDigits(text, year);
    const auto part = [&to](char lead, auto number) {
        *to++ = lead;
        to = putPadded(to, static_cast<unsigned>(number), 2);
    };
    part('-', static_cast<unsigned>(date.month()));
    part('-', static_cast<unsigned>(date.day()));
    part('T', clock.hours().count());
    part(':', clock.minutes().count());
    part(':', clock.seconds().count());
    return {text, to};
}

// Not the system's clock, whose nanoseconds end in the year 2262: a hub may send any.
char* putBareTime(char* to, tivra::TimePoint time) {
    using namespace std::chrono;
    const sys_seconds second = floor<seconds>(time);
    // What comes one after the other is of the same second as a rule.
    thread_local sys_seconds last = sys_seconds::min();
    thread_local std::string text;
    if (second != last) {
        text = secondText(second);
        last = second;
    }
    to = putText(to, text);
    *to++ = '.';
    to = putPadded(to, static_cast<unsigned>((time - second).count()), 6);
    *to++ = 'Z';
    return to;
}

std::string escaped(std::string_view text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace

void appendQuoted(std::string& out, std::string_view text) {
    if (!std::all_of(text.begin(), text.end(), needsNoEscape)) {
        out += escaped(text);
        return;
    }
    out += '"';
    out += text;
    out += '"';
}

char* putNumber(char* to, std::uint64_t number) {
    return putDigits(to, number);
}

char* putInteger(char* to, std::int64_t number) {
    return putDigits(to, number);
}

char* putDouble(char* to, double number) {
    if (char* const end = putPrice(to, number))
        return end;
    if (!std::isfinite(number))
        return putText(to, std::isnan(number) ? "\"nan\"" : number > 0 ? "\"inf\"" : "\"-inf\"");
    char* const end = putDigits(to, number);
    const std::string_view digits(to, static_cast<std::size_t>(end - to));
    return digits.find_first_of(".e") == std::string_view::npos ? putText(end, ".0") : end;
}

char* putQuoted(char* to, std::string_view text) {
    if (!std::all_of(text.begin(), text.end(), needsNoEscape))
        return putText(to, escaped(text));
    *to++ = '"';
    to = putText(to, text);
    *to++ = '"';
    return to;
}

char* putTime(char* to, tivra::TimePoint time) {
    *to++ = '"';
    to = putBareTime(to, time);
    *to++ = '"';
    return to;
}

void appendNumber(std::string& out, std::uint64_t number) {
    char text[kMostPut];
    out.append(text, putNumber(text, number));
}

void appendTime(std::string& out, tivra::TimePoint time) {
    char text[kMostPut];
    out.append(text, putBareTime(text, time));
}

void appendTime(std::string& out, std::chrono::system_clock::time_point time) {
    appendTime(out, std::chrono::floor<std::chrono::microseconds>(time));
}

void appendValue(std::string& out, const tivra::Value& value) {
    char text[kMostPut];
    switch (value.type()) {
    case tivra::Value::Type::Integer:
        out.append(text, putInteger(text, value.as<std::int64_t>()));
        break;
    case tivra::Value::Type::Double:
        out.append(text, putDouble(text, value.as<double>()));
        break;
    case tivra::Value::Type::Text:
        appendQuoted(out, value.as<std::string_view>());
        break;
    case tivra::Value::Type::Time:
        out.append(text, putTime(text, value.as<tivra::TimePoint>()));
        break;
    }
}

} // namespace tivra_bus
