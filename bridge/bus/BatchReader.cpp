#include "bus/BatchReader.h"

#include "bus/JsonReading.h"
#include "bus/SubjectNames.h"
#include "kvnparse/FrameFormat.h"

#include <charconv>
#include <climits>

namespace tivra_bus {

namespace {

using Json = JsonReading::Json;

constexpr std::size_t kMostBytes = 8U << 20;

RecordType typeOf(const JsonReading& line) {
    const std::string name = line.text("type");
    for (const RecordType type : kRecordTypes)
        if (name == nameOf(type))
            return type;
    line.fail("type", "update, image, refresh, state or gap");
}

void addField(BusFields& fields, const std::string& name, const Json& value, const JsonReading& line) {
    if (name.size() > kMostFieldName || fields.size() == kMostValues)
        line.fail("fields",
                  fmt::format("at most {} values with names of at most {} bytes", kMostValues, kMostFieldName)
                      .c_str());
    if (value.is_string())
        fields.emplace_back(name, value.get<std::string>());
    else if (value.is_number_float())
        fields.emplace_back(name, value.get<double>());
    else if (value.is_number_integer() &&
             (!value.is_number_unsigned() || value.get<std::uint64_t>() <= INT64_MAX))
        fields.emplace_back(name, value.get<std::int64_t>());
    else
        line.fail(name.c_str(), "a number of 64 bits or a text");
}

/// The fields, of which one that the message repeats has an array.
BusFields fieldsOf(const JsonReading& line) {
    const Json* const object = line.find("fields");
    if (object == nullptr || !object->is_object())
        line.fail("fields", "an object");
    BusFields fields;
    for (const auto& [name, value] : object->items()) {
        if (!value.is_array())
            addField(fields, name, value, line);
        else
            for (const Json& each : value)
                addField(fields, name, each, line);
    }
    return fields;
}

/// Reads what stands at the front of `text`. @return whether it does
bool take(std::string_view& text, std::string_view front) {
    if (text.substr(0, front.size()) != front)
        return false;
    text.remove_prefix(front.size());
    return true;
}

template<class Number>
bool takeNumber(std::string_view& text, Number& number) {
    const auto [after, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(after - text.data()));
    return error == std::errc();
}

/// What follows the symbol in a line that begins as bridges write it, with a symbol that isn't wanted;
/// nothing in any other.
std::optional<std::string_view> tailOfOther(std::string_view line,
                                            const std::function<bool(int, std::string_view)>& isWanted) {
    const std::size_t source = line.substr(0, 32).find(R"(","source":)");
    if (source == std::string_view::npos)
        return std::nullopt;
    line.remove_prefix(source);
    int number = 0;
    if (!take(line, R"(","source":)") || !takeNumber(line, number) || !take(line, R"(,"symbol":")"))
        return std::nullopt;
    const std::string_view symbol = line.substr(0, line.find('"'));
    if (symbol.find('\\') != std::string_view::npos || isWanted(number, symbol))
        return std::nullopt;
    return line.substr(symbol.size());
}

/// The length of the bytes that follow such a line; nothing where none do.
std::optional<std::uint64_t> bodyLengthIn(std::string_view tail) {
    std::uint64_t number = 0, length = 0;
    const bool hasBody = take(tail, R"(","n":)") && takeNumber(tail, number) && take(tail, R"(,"body":)") &&
                         takeNumber(tail, length) && tail == "}";
    return hasBody ? std::optional(length) : std::nullopt;
}

BusGap gapOf(const JsonReading& line) {
    BusGap gap;
    gap.cause = line.text("cause");
    gap.from = line.text("from");
    gap.to = line.text("to");
    if (line.find("messages") != nullptr)
        gap.messages = line.number("messages");
    if (line.find("bytes") != nullptr)
        gap.bytes = line.number("bytes");
    return gap;
}

} // namespace

const char* nameOf(RecordType type) {
    switch (type) {
    case RecordType::Update:
        return "update";
    case RecordType::Image:
        return "image";
    case RecordType::Refresh:
        return "refresh";
    case RecordType::State:
        return "state";
    case RecordType::Gap:
        return "gap";
    }
    return "";
}

BatchHeader headerOf(std::string_view message) {
    if (ArrowStream::isOne(message) && message.size() <= kMostBytes)
        return ArrowReader(message).header();
    std::size_t length = 0;
    return readHeader(message, length);
}

BatchReader::BatchReader(std::string_view bytes, BodyDecoder* decoder) : m_decoder(nullptr) {
    if (bytes.size() > kMostBytes)
        throw BatchError(fmt::format("a batch: {} bytes are more than the {} that one may have", bytes.size(),
                                     kMostBytes));
    if (ArrowStream::isOne(bytes)) {
        m_arrow.emplace(bytes);
        return;
    }
    std::size_t length = 0;
    m_header = readHeader(bytes, length);
    m_rest = bytes.substr(length);
    if (m_header.payload == nameOf(Payload::Body)) {
        m_decoder = decoder != nullptr ? decoder : &m_ownDecoder;
        m_decoder->begin(nextLine());
    } else if (m_header.payload != nameOf(Payload::Json)) {
        throw BatchError(
            R"(a batch, line 1: this program reads no other payloads than "json", "body" and "arrow": use )"
            "the release of the bridge that has written it");
    }
}

std::string_view BatchReader::nextLine() {
    ++m_line;
    const std::size_t end = m_rest.find('\n');
    if (end == std::string_view::npos)
        throw BatchError(fmt::format("a batch, line {}: it ends before the {} records of its header", m_line,
                                     m_header.records));
    const std::string_view text = m_rest.substr(0, end);
    m_rest.remove_prefix(end + 1);
    return text;
}

std::optional<std::string_view> BatchReader::nextBody(std::uint64_t length) {
    ++m_line;
    if (length >= m_rest.size() || m_rest[length] != '\n')
        return std::nullopt;
    const std::string_view body = m_rest.substr(0, length);
    m_rest.remove_prefix(length + 1);
    return body;
}

std::optional<std::string_view>
BatchReader::nextWanted(const std::function<bool(int, std::string_view)>& isWanted) {
    while (m_count < m_header.records) {
        ++m_count;
        const std::string_view text = nextLine();
        const std::optional<std::string_view> tail = tailOfOther(text, isWanted);
        if (!tail)
            return text;
        const auto length = m_decoder != nullptr ? bodyLengthIn(*tail) : std::nullopt;
        if (length && !nextBody(*length))
            throw BatchError(
                fmt::format("a batch, line {}: {} bytes and a line end were wanted", m_line, *length));
    }
    if (!m_rest.empty())
        throw BatchError(fmt::format("a batch, line {}: {} bytes are left after the {} records of its header",
                                     m_line + 1, m_rest.size(), m_header.records));
    return std::nullopt;
}

void BatchReader::readValues(BusRecord& record, const JsonReading& line) {
    if (m_decoder == nullptr || line.find("body") == nullptr) {
        record.fields = fieldsOf(line);
        return;
    }
    const std::uint64_t length = line.number("body", KVNAPI::kKvnMaxBody);
    const std::optional<std::string_view> body = nextBody(length);
    if (!body)
        throw BatchError(
            fmt::format("a batch, line {}: {} bytes and a line end were wanted", m_line, length));
    try {
        record.fields = m_decoder->decode(*body);
    } catch (const BodyError& error) {
        throw BodyError(fmt::format("a batch, line {}: {}", m_line, error.what()));
    }
}

bool BatchReader::next(BusRecord& record, const std::function<bool(int, std::string_view)>& isWanted) {
    if (m_arrow)
        return m_arrow->next(record, isWanted);
    const std::optional<std::string_view> text = nextWanted(isWanted);
    if (!text)
        return false;
    const JsonReading line(*text, fmt::format("a batch, line {}", m_line));
    record = {};
    record.type = typeOf(line);
    const bool isOfAll = record.type == RecordType::Gap && line.find("symbol") == nullptr;
    if (!isOfAll) {
        record.source = static_cast<int>(line.number("source", INT_MAX));
        record.symbol = line.text("symbol");
        record.number = line.number("n");
    }
    if (record.type == RecordType::State) {
        record.state = line.text("state");
        record.cause = line.textOr("cause", "");
    } else if (record.type == RecordType::Gap) {
        record.gap = gapOf(line);
    } else {
        readValues(record, line);
    }
    return true;
}

LastValues readLastValues(std::string_view message) {
    if (message.size() > kMostBytes)
        throw BatchError("last values: the message is longer than one may be");
    const JsonReading line(message, "last values");
    if (line.number("tivra") != kLayoutVersion)
        throw BatchError("last values: another layout than the one that this program reads");
    LastValues last;
    last.source = static_cast<int>(line.number("source", INT_MAX));
    last.symbol = line.text("symbol");
    last.epoch = line.number("epoch", kMostEpoch);
    last.number = line.number("n");
    last.state = line.text("state");
    last.time = line.text("time");
    last.fields = fieldsOf(line);
    return last;
}

} // namespace tivra_bus
