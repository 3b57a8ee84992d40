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

bool isPlain(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte < 0x80 && c != '"' && c != '\\';
}

template<class Number>
void appendDigits(std::string& out, Number number) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, number).ptr;
    out.append(text, end);
}

/// `number` with so many digits.
void appendPadded(std::string& out, unsigned number, int digits) {
    char text[10];
    for (int i = digits - 1; i >= 0; --i, number /= 10)
        text[i] = static_cast<char>('0' + number % 10);
    out.append(text, static_cast<std::size_t>(digits));
}

/// Appends a number of few decimals, as prices are: nothing else has to be tried for it, since only one
/// number of so few digits is this one.
bool appendPrice(std::string& out, double number) {
    const double scaled = number * kPriceScale;
    if (!(std::abs(scaled) < kMostScaled) || number == 0.0)
        return false;
    const auto whole = static_cast<std::int64_t>(std::llrint(scaled));
    if (static_cast<double>(whole) / kPriceScale != number)
        return false;
    const auto digits = static_cast<std::uint64_t>(whole < 0 ? -whole : whole);
    if (whole < 0)
        out += '-';
    appendDigits(out, digits / kPriceUnits);
    out += '.';
    appendPadded(out, static_cast<unsigned>(digits % kPriceUnits), kPriceDecimals);
    while (out.back() == '0' && out[out.size() - 2] != '.')
        out.pop_back();
    return true;
}

void appendDouble(std::string& out, double number) {
    if (appendPrice(out, number))
        return;
    if (!std::isfinite(number)) {
        out += std::isnan(number) ? "\"nan\"" : number > 0 ? "\"inf\"" : "\"-inf\"";
        return;
    }
    const std::size_t begin = out.size();
    appendDigits(out, number);
    if (out.find_first_of(".e", begin) == std::string::npos)
        out += ".0";
}

/// "2013-10-07T13:30:00".
std::string secondText(std::chrono::sys_seconds second) {
    using namespace std::chrono;
    const sys_days day = floor<days>(second);
    const year_month_day date(day);
    const hh_mm_ss clock(second - day);
    std::string text;
    if (const int year = static_cast<int>(date.year()); year >= 0 && year <= 9999)
        appendPadded(text, static_cast<unsigned>(year), 4);
    else
        appendDigits(text, year);
    const auto part = [&text](char lead, auto number) {
        text += lead;
        appendPadded(text, static_cast<unsigned>(number), 2);
    };
    part('-', static_cast<unsigned>(date.month()));
    part('-', static_cast<unsigned>(date.day()));
    part('T', clock.hours().count());
    part(':', clock.minutes().count());
    part(':', clock.seconds().count());
    return text;
}

} // namespace

void appendQuoted(std::string& out, std::string_view text) {
    if (!std::all_of(text.begin(), text.end(), isPlain)) {
        out += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        return;
    }
    out += '"';
    out += text;
    out += '"';
}

void appendNumber(std::string& out, std::uint64_t number) {
    appendDigits(out, number);
}

void appendTime(std::string& out, std::chrono::system_clock::time_point time) {
    using namespace std::chrono;
    const sys_seconds second = floor<seconds>(time);
    // What comes one after the other is of the same second as a rule.
    thread_local sys_seconds last = sys_seconds::min();
    thread_local std::string text;
    if (second != last) {
        text = secondText(second);
        last = second;
    }
    out += text;
    out += '.';
    appendPadded(out, static_cast<unsigned>(floor<microseconds>(time - second).count()), 6);
    out += 'Z';
}

void appendValue(std::string& out, const tivra::Value& value) {
    switch (value.type()) {
    case tivra::Value::Type::Integer:
        appendDigits(out, value.as<std::int64_t>());
        break;
    case tivra::Value::Type::Double:
        appendDouble(out, value.as<double>());
        break;
    case tivra::Value::Type::Text:
        appendQuoted(out, value.as<std::string_view>());
        break;
    case tivra::Value::Type::Time:
        out += '"';
        appendTime(out, value.as<tivra::TimePoint>());
        out += '"';
        break;
    }
}

} // namespace tivra_bus
