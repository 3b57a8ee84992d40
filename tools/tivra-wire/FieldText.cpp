#include "FieldText.h"

#include "TimeRange.h"

#include "kvnparse/FrameFormat.h"

#include "common/JsonFields.h"

#include <capture/CaptureNote.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace tivra_wire {

namespace {

using Json = nlohmann::ordered_json;
using tivra_tools::putField;

constexpr int kSourceToken = 4;
constexpr int kSymbolToken = 5;

/// The number, or the text of what is none.
template<class Number>
Json numberOf(std::string_view text) {
    if (!text.empty() && text.front() == '+')
        text.remove_prefix(1);
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size())
        return text;
    return number;
}

Json valueOf(const KVNAPI::Token* token, std::string_view text) {
    if (token == nullptr || token->storage == KVNAPI::Token::TY_STRING)
        return text;
    return token->storage == KVNAPI::Token::TY_INT ? numberOf<std::int64_t>(text) : numberOf<double>(text);
}

std::string lineOf(const Json& object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

/// A cell, in quotes where it needs them.
std::string cell(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos)
        return std::string(text);
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c;
        if (c == '"')
            quoted += '"';
    }
    return quoted + "\"";
}

} // namespace

FieldText::FieldText(const Dictionary& dictionary, Form from, std::vector<std::string> columns)
    : m_dictionary(dictionary), m_isLine(from == Form::Vkvn), m_columns(std::move(columns)) {}

std::string FieldText::Field::name() const {
    return token != nullptr ? std::string(token->name) : std::string(id);
}

bool FieldText::Field::isDeleted() const {
    return value.empty() && token != nullptr && token->storage != KVNAPI::Token::TY_STRING;
}

void FieldText::read(const Frame& frame) {
    m_fields.clear();
    m_source = m_symbol = {};
    const std::size_t bodyEnd = frame.bytes.size() - 1;
    for (std::size_t from = m_isLine ? 0 : KVNAPI::kKvnHeaderSize; from < bodyEnd;) {
        const std::size_t to = std::min(frame.bytes.find('|', from), bodyEnd);
        const std::string_view piece = frame.bytes.substr(from, to - from);
        from = to + 1;
        const std::size_t equals = piece.find('=');
        Field field;
        field.id = piece.substr(0, equals);
        field.value = equals == std::string_view::npos ? std::string_view() : piece.substr(equals + 1);
        field.token = m_dictionary.find(std::string(field.id));
        const int number = field.token == nullptr ? 0 : static_cast<int>(field.token->kvnid);
        if (number == kSourceToken && m_source.empty())
            m_source = field.value;
        else if (number == kSymbolToken && m_symbol.empty())
            m_symbol = field.value;
        else
            m_fields.push_back(field);
    }
}

std::string FieldText::json(const Frame& frame) {
    read(frame);
    Json line;
    line["type"] = "message";
    if (frame.nanoseconds)
        line["received"] = timeText(*frame.nanoseconds);
    if (!m_source.empty())
        line["source"] = numberOf<std::int64_t>(m_source);
    if (!m_symbol.empty())
        line["symbol"] = m_symbol;
    Json& fields = line["fields"] = Json::object();
    for (const Field& field : m_fields)
        putField(fields, field.name(), field.isDeleted() ? Json() : valueOf(field.token, field.value));
    return lineOf(line);
}

std::string FieldText::noteJson(const Frame& frame) {
    const tivra_capture::Note note = tivra_capture::noteOf(frame.note);
    Json line;
    line["type"] = "note";
    line["received"] = timeText(frame.nanoseconds.value_or(0));
    line["kind"] = note.kind;
    for (const auto& [name, value] : note.values)
        putField(line, name, numberOf<std::int64_t>(value));
    return lineOf(line);
}

std::string FieldText::csvHeader() const {
    std::string header = "received,source,symbol";
    if (m_columns.empty())
        header += ",field,value";
    for (const std::string& column : m_columns)
        header.append(1, ',').append(cell(column));
    return header += '\n';
}

bool FieldText::isColumn(const Field& field, const std::string& column) const {
    return field.token != nullptr ? m_dictionary.find(column) == field.token : field.id == column;
}

std::string FieldText::csv(const Frame& frame) {
    read(frame);
    std::string begin;
    if (frame.nanoseconds)
        begin = timeText(*frame.nanoseconds);
    begin.append(1, ',').append(cell(m_source)).append(1, ',').append(cell(m_symbol));
    std::string rows;
    if (m_columns.empty()) {
        for (const Field& field : m_fields)
            rows.append(begin)
                .append(1, ',')
                .append(cell(field.name()))
                .append(1, ',')
                .append(cell(field.value)) += '\n';
        return rows;
    }
    rows = begin;
    for (const std::string& column : m_columns) {
        const auto found = std::find_if(m_fields.begin(), m_fields.end(),
                                        [&](const Field& field) { return isColumn(field, column); });
        rows += ',';
        if (found != m_fields.end())
            rows += cell(found->value);
    }
    return rows += '\n';
}

} // namespace tivra_wire
