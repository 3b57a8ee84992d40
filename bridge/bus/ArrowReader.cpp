#include "bus/ArrowReader.h"

#include "bus/BusError.h"
#include "bus/JsonText.h"
#include "bus/ValidText.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdint>

namespace tivra_bus {

namespace {

std::string timeText(std::int64_t microseconds) {
    std::string text;
    appendTime(text, tivra::TimePoint(std::chrono::microseconds(microseconds)));
    return text;
}

} // namespace

ArrowReader::ArrowReader(std::string_view bytes)
    : m_stream(bytes), m_header(headerIn(m_stream.header(), "a batch, the schema's metadata")) {
    sortColumns();
}

void ArrowReader::sortColumns() {
    m_record.fill(kNone);
    const std::vector<ArrowColumnType>& columns = m_stream.columns();
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const ArrowColumnType& column = columns[i];
        std::size_t record = 0;
        while (record < kRecordColumns.size() && column.name != kRecordColumns[record].name)
            ++record;
        const auto failHere = [&column](const char* what) {
            throw BatchError(fmt::format("a batch, column \"{}\": {}", column.name, what));
        };
        if (record < kRecordColumns.size()) {
            if (m_record[record] != kNone)
                failHere("it is there twice");
            if (column.isList || column.kind != kRecordColumns[record].kind)
                failHere("another type than bridges write");
            m_record[record] = i;
        } else if (column.kind == ArrowKind::Int32 || column.kind == ArrowKind::UInt64) {
            failHere("another type than bridges write");
        } else {
            m_fields.push_back({column.field.empty() ? column.name : column.field, i});
        }
    }
    for (std::size_t i = 0; i < kAlwaysThere; ++i)
        if (m_record[i] == kNone)
            throw BatchError(fmt::format("a batch, column \"{}\": it is missing", kRecordColumns[i].name));
}

void ArrowReader::fail(const std::string& what) const {
    throw BatchError(fmt::format("a batch, row {}: {}", m_count, what));
}

bool ArrowReader::nextRow() {
    if (m_isAtEnd)
        return false;
    ++m_row;
    while (!m_hasBatch || m_row >= m_stream.rows()) {
        m_hasBatch = m_stream.nextBatch();
        m_row = 0;
        if (!m_hasBatch) {
            m_isAtEnd = true;
            if (m_count != m_header.records)
                throw BatchError(fmt::format("a batch: it has {} rows, and its header says {}", m_count,
                                             m_header.records));
            return false;
        }
    }
    ++m_count;
    return true;
}

const ArrowValues* ArrowReader::find(RecordColumn column) const {
    const std::size_t index = m_record[static_cast<std::size_t>(column)];
    if (index == kNone || !m_stream.values()[index].has(m_row))
        return nullptr;
    return &m_stream.values()[index];
}

std::string ArrowReader::textAt(std::size_t column, std::size_t value) const {
    const std::string_view bytes = m_stream.values()[column].text(value);
    std::string text = validText(bytes);
    if (text != bytes && !m_stream.isBinary(column))
        fail(fmt::format("\"{}\": a text in UTF-8 was wanted", m_stream.columns()[column].name));
    return text;
}

BusValue ArrowReader::valueAt(std::size_t column, std::size_t value) const {
    const ArrowValues& values = m_stream.values()[column];
    switch (m_stream.columns()[column].kind) {
    case ArrowKind::Double:
        return values.number<double>(value);
    case ArrowKind::Time:
        return timeText(values.number<std::int64_t>(value));
    case ArrowKind::Text:
        return textAt(column, value);
    case ArrowKind::Int32:
    case ArrowKind::UInt64:
    case ArrowKind::Int64:
        break;
    }
    return values.number<std::int64_t>(value);
}

std::string ArrowReader::textOr(RecordColumn column, const char* other) const {
    return find(column) != nullptr ? textAt(m_record[static_cast<std::size_t>(column)], m_row) : other;
}

std::string ArrowReader::text(RecordColumn column) const {
    if (find(column) == nullptr)
        fail(fmt::format("\"{}\" is missing", kRecordColumns[static_cast<std::size_t>(column)].name));
    return textOr(column, "");
}

std::string ArrowReader::timeOr(RecordColumn column, const char* other) const {
    const ArrowValues* const found = find(column);
    return found != nullptr ? timeText(found->number<std::int64_t>(m_row)) : other;
}

RecordType ArrowReader::typeOfRow() const {
    const ArrowValues* const found = find(RecordColumn::Type);
    const std::string_view name = found != nullptr ? found->text(m_row) : std::string_view();
    for (const RecordType type : kRecordTypes)
        if (name == nameOf(type))
            return type;
    fail("\"type\": update, image, refresh, state or gap was wanted");
}

void ArrowReader::readKey(BusRecord& record) const {
    const ArrowValues* const source = find(RecordColumn::Source);
    const ArrowValues* const number = find(RecordColumn::Number);
    if (source == nullptr || number == nullptr || source->number<std::int32_t>(m_row) < 0)
        fail("\"source\" and \"n\": numbers in their ranges were wanted");
    record.source = source->number<std::int32_t>(m_row);
    record.symbol = text(RecordColumn::Symbol);
    record.number = number->number<std::uint64_t>(m_row);
}

void ArrowReader::readGap(BusGap& gap) const {
    gap.cause = text(RecordColumn::Cause);
    gap.from = timeOr(RecordColumn::From, "");
    gap.to = timeOr(RecordColumn::To, "");
    if (const ArrowValues* const messages = find(RecordColumn::Messages))
        gap.messages = messages->number<std::uint64_t>(m_row);
    if (const ArrowValues* const bytes = find(RecordColumn::Bytes))
        gap.bytes = bytes->number<std::uint64_t>(m_row);
}

void ArrowReader::readFields(BusFields& fields) const {
    for (const Field& field : m_fields) {
        const ArrowValues& values = m_stream.values()[field.column];
        if (!values.has(m_row))
            continue;
        const auto [begin, end] = values.range(m_row);
        if (fields.size() + (end - begin) > kMostValues)
            fail(fmt::format("at most {} values were wanted", kMostValues));
        for (std::size_t i = begin; i < end; ++i)
            fields.emplace_back(field.name, valueAt(field.column, i));
    }
}

bool ArrowReader::next(BusRecord& record, const std::function<bool(int, std::string_view)>& isWanted) {
    while (nextRow()) {
        const ArrowValues* const source = find(RecordColumn::Source);
        const ArrowValues* const symbol = find(RecordColumn::Symbol);
        if (source != nullptr && symbol != nullptr &&
            !isWanted(source->number<std::int32_t>(m_row), symbol->text(m_row)))
            continue;
        record = {};
        record.type = typeOfRow();
        if (record.type != RecordType::Gap || symbol != nullptr)
            readKey(record);
        if (record.type == RecordType::State) {
            record.state = text(RecordColumn::State);
            record.cause = textOr(RecordColumn::Cause, "");
        } else if (record.type == RecordType::Gap) {
            readGap(record.gap);
        } else {
            readFields(record.fields);
        }
        return true;
    }
    return false;
}

} // namespace tivra_bus
