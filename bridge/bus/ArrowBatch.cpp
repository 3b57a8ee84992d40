#include "bus/ArrowBatch.h"

#include "bus/TimeText.h"
#include "bus/ValidText.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace tivra_bus {

namespace {

constexpr std::size_t kBitsOfByte = 8;
/// Of a message without columns, its header included.
constexpr std::size_t kFrame = 1024;
/// What a message may have besides the records, so that its memory is kept.
constexpr std::size_t kMostFrame = 64U << 10;

} // namespace

ArrowBatch::ArrowBatch(std::size_t bytes) : m_expected(bytes) {
    reset();
}

void ArrowBatch::reset() {
    m_rows = 0;
    m_inLast.clear();
    m_used = m_rowBits = m_looseBytes = m_frameBytes = 0;
    for (std::size_t i = 0; i < kAlwaysThere; ++i)
        use(i);
}

void ArrowBatch::use(std::size_t column) {
    ++m_used;
    m_rowBits += m_columns[column].rowBits();
    m_frameBytes += m_columns[column].frameBytes();
}

template<class Change>
void ArrowBatch::change(std::size_t column, const Change& change) {
    ArrowColumn& changed = m_columns[column];
    const bool wasUsed = isUsed(column);
    m_looseBytes -= changed.looseBytes();
    change(changed);
    m_looseBytes += changed.looseBytes();
    if (wasUsed == isUsed(column))
        return;
    if (!wasUsed) {
        use(column);
        return;
    }
    --m_used;
    m_rowBits -= changed.rowBits();
    m_frameBytes -= changed.frameBytes();
}

template<class Value>
void ArrowBatch::put(std::size_t column, const Value& value) {
    ArrowColumn& to = m_columns[column];
    std::size_t list = m_columns.findList(column);
    if (to.has(m_rows)) {
        // A second one: both are in a list, and this column is left to records that have one.
        list = m_columns.listOf(column);
        change(list, [&](ArrowColumn& both) {
            change(column, [&](ArrowColumn& one) { one.moveLast(m_rows, both); });
        });
        m_inLast.push_back(list);
    }
    if (list != ArrowColumns::kNone && m_columns[list].has(m_rows)) {
        change(list, [&](ArrowColumn& both) { both.add(m_rows, value); });
        return;
    }
    if (!isUsed(column))
        use(column);
    m_looseBytes -= to.looseBytes();
    to.add(m_rows, value);
    m_looseBytes += to.looseBytes();
    m_inLast.push_back(column);
}

void ArrowBatch::putTime(RecordColumn column, std::string_view text) {
    if (const auto time = timeOf(text))
        putIn(column,
              std::int64_t{std::chrono::floor<std::chrono::microseconds>(*time).time_since_epoch().count()});
}

void ArrowBatch::begin(RecordType type, const RecordKey* key) {
    m_inLast.clear();
    putIn(RecordColumn::Type, std::string_view(nameOf(type)));
    if (key == nullptr)
        return;
    putIn(RecordColumn::Source, std::int32_t{key->source});
    if (isAscii(key->symbol))
        putIn(RecordColumn::Symbol, key->symbol);
    else
        putIn(RecordColumn::Symbol, std::string_view(validText(key->symbol)));
    putIn(RecordColumn::Number, key->number);
}

void ArrowBatch::putEntry(const SymbolImage& image, const SymbolImage::Entry& entry) {
    const std::size_t column = m_columns.of(*entry.name->place, entry.type);
    switch (entry.type) {
    case tivra::Value::Type::Integer:
    case tivra::Value::Type::Time:
        put(column, entry.content.integer);
        break;
    case tivra::Value::Type::Double:
        put(column, entry.content.number);
        break;
    case tivra::Value::Type::Text:
        put(column, image.textOf(entry));
        break;
    }
}

void ArrowBatch::putValue(const std::string& name, const tivra::Value& value) {
    const std::size_t column = m_columns.of(name, value.type());
    switch (value.type()) {
    case tivra::Value::Type::Integer:
        put(column, value.as<std::int64_t>());
        break;
    case tivra::Value::Type::Time:
        put(column, std::int64_t{value.as<tivra::TimePoint>().time_since_epoch().count()});
        break;
    case tivra::Value::Type::Double:
        put(column, value.as<double>());
        break;
    case tivra::Value::Type::Text:
        put(column, value.as<std::string_view>());
        break;
    }
}

void ArrowBatch::add(const ValuesRecord& record) {
    const RecordKey key{record.name.source, record.name.symbol, record.number};
    begin(record.type, &key);
    const std::vector<SymbolImage::Entry>& entries = record.image.entries();
    if (record.change == nullptr)
        for (const SymbolImage::Entry& entry : entries)
            putEntry(record.image, entry);
    else if (record.change->isWhole)
        for (const std::uint32_t index : record.change->fields)
            putEntry(record.image, entries[index]);
    else
        for (const auto& [field, value] : *record.update)
            putValue(field.name(), value);
    ++m_rows;
}

void ArrowBatch::addState(const RecordKey& key, std::string_view state, std::string_view cause) {
    begin(RecordType::State, &key);
    putIn(RecordColumn::State, std::string_view(validText(state)));
    putIn(RecordColumn::Cause, std::string_view(validText(cause)));
    ++m_rows;
}

void ArrowBatch::addGap(const RecordKey* key, const BusGap& gap) {
    begin(RecordType::Gap, key);
    putIn(RecordColumn::Cause, std::string_view(validText(gap.cause)));
    putTime(RecordColumn::From, gap.from);
    putTime(RecordColumn::To, gap.to);
    if (gap.messages)
        putIn(RecordColumn::Messages, *gap.messages);
    if (gap.bytes)
        putIn(RecordColumn::Bytes, *gap.bytes);
    ++m_rows;
}

void ArrowBatch::removeLast() {
    --m_rows;
    for (const std::size_t column : m_inLast)
        change(column, [&](ArrowColumn& from) { from.remove(m_rows); });
    m_inLast.clear();
}

std::size_t ArrowBatch::bytes() const {
    return m_rows * m_rowBits / kBitsOfByte + m_looseBytes;
}

std::size_t ArrowBatch::messageBytes() const {
    // No reader takes more columns, however large messages may be.
    return m_used > kMostColumns ? SIZE_MAX : kFrame + m_frameBytes + bytes();
}

ClosedBatch ArrowBatch::close(BatchHeader header) {
    header.records = m_rows;
    header.payload = nameOf(Payload::Arrow);
    std::vector<const ArrowColumn*> columns;
    columns.reserve(m_used);
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        if (!isUsed(i))
            continue;
        m_columns[i].fill(m_rows);
        columns.push_back(&m_columns[i]);
    }
    ClosedBatch batch;
    batch.buffer = std::exchange(m_spare, {});
    batch.buffer.clear();
    batch.buffer.reserve(messageBytes());
    m_encoder.append(batch.buffer, columns, m_rows, headerText(header));
    for (std::size_t i = 0; i < m_columns.size(); ++i)
        m_columns[i].clear();
    reset();
    return batch;
}

void ArrowBatch::reuse(std::string buffer) {
    if (buffer.capacity() <= 2 * (m_expected + kMostFrame))
        m_spare = std::move(buffer);
}

} // namespace tivra_bus
