#include "bus/BatchWriter.h"

#include "bus/BusError.h"
#include "bus/JsonText.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tivra_bus {

BatchWriter::BatchWriter(std::unique_ptr<const RecordWriter> records, std::size_t bytes)
    : m_records(std::move(records)), m_expected(bytes) {
    reset();
}

void BatchWriter::reset() {
    // Memory that is new costs the kernel a fault for each page.
    m_lines = std::exchange(m_spare, {});
    m_lines.reserve(kHeaderRoom + m_expected);
    m_lines.resize(kHeaderRoom);
    m_last = kHeaderRoom;
    m_count = 0;
    m_fields.clear();
}

void BatchWriter::begin(RecordType type, const RecordKey* key) {
    m_last = m_lines.size();
    m_lines += R"({"type":")";
    m_lines += nameOf(type);
    m_lines += '"';
    if (key == nullptr)
        return;
    m_lines += R"(,"source":)";
    appendNumber(m_lines, static_cast<std::uint64_t>(key->source));
    m_lines += R"(,"symbol":)";
    appendQuoted(m_lines, key->symbol);
    m_lines += R"(,"n":)";
    appendNumber(m_lines, key->number);
}

void BatchWriter::end() {
    m_lines += "}\n";
    ++m_count;
}

void BatchWriter::add(const ValuesRecord& record) {
    m_last = m_lines.size();
    m_records->append(m_lines, record, m_fields);
    ++m_count;
}

void BatchWriter::addState(const RecordKey& key, std::string_view state, std::string_view cause) {
    begin(RecordType::State, &key);
    m_lines += R"(,"state":)";
    appendQuoted(m_lines, state);
    m_lines += R"(,"cause":)";
    appendQuoted(m_lines, cause);
    end();
}

void BatchWriter::addGap(const RecordKey* key, const BusGap& gap) {
    begin(RecordType::Gap, key);
    const auto addText = [this](const char* name, std::string_view text) {
        m_lines += name;
        appendQuoted(m_lines, text);
    };
    addText(R"(,"cause":)", gap.cause);
    addText(R"(,"from":)", gap.from);
    addText(R"(,"to":)", gap.to);
    if (gap.messages) {
        m_lines += R"(,"messages":)";
        appendNumber(m_lines, *gap.messages);
    }
    if (gap.bytes) {
        m_lines += R"(,"bytes":)";
        appendNumber(m_lines, *gap.bytes);
    }
    end();
}

void BatchWriter::addLine(std::string_view line) {
    m_last = m_lines.size();
    m_lines += line;
    ++m_count;
}

void BatchWriter::removeLast() {
    m_lines.resize(m_last);
    // What others need as well stays.
    if (--m_count == 0)
        m_fields.clear();
}

std::optional<std::string_view> BatchWriter::lastLine() const {
    if (m_records->payload() != Payload::Json)
        return std::nullopt;
    return std::string_view(m_lines).substr(m_last);
}

ClosedBatch BatchWriter::close(BatchHeader header) {
    header.records = m_count;
    header.payload = nameOf(m_records->payload());
    std::string line = headerLine(header);
    if (line.size() > kHeaderRoom)
        throw BatchError(
            fmt::format("a batch: its header has {} bytes, and {} are most", line.size(), kHeaderRoom));
    if (m_records->payload() == Payload::Body)
        line += m_fields.line();
    ClosedBatch batch;
    batch.begin = kHeaderRoom - std::min(kHeaderRoom, line.size());
    batch.buffer = std::move(m_lines);
    batch.buffer.replace(batch.begin, kHeaderRoom - batch.begin, line);
    reset();
    return batch;
}

void BatchWriter::reuse(std::string buffer) {
    if (buffer.capacity() <= 2 * (kHeaderRoom + m_expected))
        m_spare = std::move(buffer);
}

} // namespace tivra_bus
