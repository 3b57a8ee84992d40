#include "bus/JsonText.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace tivra_bus {

namespace {

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

void appendDouble(std::string& out, double number) {
    if (!std::isfinite(number)) {
        out += std::isnan(number) ? "\"nan\"" : number > 0 ? "\"inf\"" : "\"-inf\"";
        return;
    }
    const std::size_t begin = out.size();
    appendDigits(out, number);
    if (out.find_first_of(".e", begin) == std::string::npos)
        out += ".0";
}

/// `number` with so many digits.
void appendPadded(std::string& out, unsigned number, int digits) {
    char text[10];
    for (int i = digits - 1; i >= 0; --i, number /= 10)
        text[i] = static_cast<char>('0' + number % 10);
    out.append(text, static_cast<std::size_t>(digits));
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
    const sys_days day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(floor<microseconds>(time - day));
    if (const int year = static_cast<int>(date.year()); year >= 0 && year <= 9999)
        appendPadded(out, static_cast<unsigned>(year), 4);
    else
        appendDigits(out, year);
    const auto part = [&out](char lead, auto number, int digits) {
        out += lead;
        appendPadded(out, static_cast<unsigned>(number), digits);
    };
    part('-', static_cast<unsigned>(date.month()), 2);
    part('-', static_cast<unsigned>(date.day()), 2);
    part('T', clock.hours().count(), 2);
    part(':', clock.minutes().count(), 2);
    part(':', clock.seconds().count(), 2);
    part('.', clock.subseconds().count(), 6);
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
