#include "bus/BatchWriter.h"

#include "bus/BusError.h"
#include "bus/JsonText.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tivra_bus {

BatchWriter::BatchWriter(std::size_t bytes) : m_expected(bytes) {
    reset();
}

void BatchWriter::reset() {
    // Memory that is new costs the kernel a fault for each page.
    m_records = std::exchange(m_spare, {});
    m_records.reserve(kHeaderRoom + m_expected);
    m_records.resize(kHeaderRoom);
    m_last = kHeaderRoom;
    m_count = 0;
    m_fields.clear();
}

void BatchWriter::begin(RecordType type, const RecordKey* key) {
    m_last = m_records.size();
    m_records += R"({"type":")";
    m_records += nameOf(type);
    m_records += '"';
    if (key == nullptr)
        return;
    m_records += R"(,"source":)";
    appendNumber(m_records, static_cast<std::uint64_t>(key->source));
    m_records += R"(,"symbol":)";
    appendQuoted(m_records, key->symbol);
    m_records += R"(,"n":)";
    appendNumber(m_records, key->number);
}

void BatchWriter::end() {
    m_records += "}\n";
    ++m_count;
}

void BatchWriter::add(const RecordWriter& writer, const ValuesRecord& record) {
    m_last = m_records.size();
    writer.append(m_records, record, m_fields);
    ++m_count;
}

void BatchWriter::addState(const RecordKey& key, std::string_view state, std::string_view cause) {
    begin(RecordType::State, &key);
    m_records += R"(,"state":)";
    appendQuoted(m_records, state);
    m_records += R"(,"cause":)";
    appendQuoted(m_records, cause);
    end();
}

void BatchWriter::addGap(const RecordKey* key, const BusGap& gap) {
    begin(RecordType::Gap, key);
    const auto addText = [this](const char* name, std::string_view text) {
        m_records += name;
        appendQuoted(m_records, text);
    };
    addText(R"(,"cause":)", gap.cause);
    addText(R"(,"from":)", gap.from);
    addText(R"(,"to":)", gap.to);
    if (gap.messages) {
        m_records += R"(,"messages":)";
        appendNumber(m_records, *gap.messages);
    }
    if (gap.bytes) {
        m_records += R"(,"bytes":)";
        appendNumber(m_records, *gap.bytes);
    }
    end();
}

void BatchWriter::addAgain(std::string_view record) {
    m_last = m_records.size();
    m_records += record;
    ++m_count;
}

void BatchWriter::removeLast() {
    m_records.resize(m_last);
    // What others need as well stays.
    if (--m_count == 0)
        m_fields.clear();
}

ClosedBatch BatchWriter::close(BatchHeader header) {
    header.records = m_count;
    std::string line = headerLine(header);
    if (line.size() > kHeaderRoom)
        throw BatchError(
            fmt::format("a batch: its header has {} bytes, and {} are most", line.size(), kHeaderRoom));
    if (header.payload == kBodyPayload)
        line += m_fields.line();
    ClosedBatch batch;
    batch.begin = kHeaderRoom - std::min(kHeaderRoom, line.size());
    batch.buffer = std::move(m_records);
    batch.buffer.replace(batch.begin, kHeaderRoom - batch.begin, line);
    reset();
    return batch;
}

void BatchWriter::reuse(std::string buffer) {
    if (buffer.capacity() <= 2 * (kHeaderRoom + m_expected))
        m_spare = std::move(buffer);
}

} // namespace tivra_bus
