#include "bus/BatchReader.h"

#include "bus/JsonReading.h"
#include "bus/SubjectNames.h"

#include <array>
#include <charconv>
#include <climits>

namespace tivra_bus {

namespace {

using Json = JsonReading::Json;

constexpr std::array kTypes{RecordType::Update, RecordType::Image, RecordType::Refresh, RecordType::State,
                            RecordType::Gap};
constexpr std::size_t kMostBytes = 8U << 20;

RecordType typeOf(const JsonReading& line) {
    const std::string name = line.text("type");
    for (const RecordType type : kTypes)
        if (name == nameOf(type))
            return type;
    line.fail("type", "update, image, refresh, state or gap");
}

void addField(std::vector<std::pair<std::string, BusValue>>& fields, const std::string& name,
              const Json& value, const JsonReading& line) {
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
std::vector<std::pair<std::string, BusValue>> fieldsOf(const JsonReading& line) {
    const Json* const object = line.find("fields");
    if (object == nullptr || !object->is_object())
        line.fail("fields", "an object");
    std::vector<std::pair<std::string, BusValue>> fields;
    for (const auto& [name, value] : object->items()) {
        if (!value.is_array())
            addField(fields, name, value, line);
        else
            for (const Json& each : value)
                addField(fields, name, each, line);
    }
    return fields;
}

/// Whether a line begins as bridges write it, with a symbol that isn't wanted.
bool isOfOther(std::string_view line, const std::function<bool(int, std::string_view)>& isWanted) {
    constexpr std::string_view kSource = R"(","source":)";
    constexpr std::string_view kSymbol = R"(,"symbol":")";
    const std::size_t source = line.substr(0, 32).find(kSource);
    if (source == std::string_view::npos)
        return false;
    const char* const end = line.data() + line.size();
    int number = 0;
    const auto [after, error] = std::from_chars(line.data() + source + kSource.size(), end, number);
    std::string_view rest(after, static_cast<std::size_t>(end - after));
    if (error != std::errc() || rest.substr(0, kSymbol.size()) != kSymbol)
        return false;
    rest.remove_prefix(kSymbol.size());
    const std::string_view symbol = rest.substr(0, rest.find('"'));
    return symbol.find('\\') == std::string_view::npos && !isWanted(number, symbol);
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

BatchReader::BatchReader(std::string_view bytes) {
    if (bytes.size() > kMostBytes)
        throw BatchError(fmt::format("a batch: {} bytes are more than the {} that one may have", bytes.size(),
                                     kMostBytes));
    std::size_t length = 0;
    m_header = readHeader(bytes, length);
    if (m_header.payload != "json")
        throw BatchError("a batch, line 1: this program reads no other payload than json");
    m_rest = bytes.substr(length);
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

bool BatchReader::next(BusRecord& record, const std::function<bool(int, std::string_view)>& isWanted) {
    std::string_view text;
    do {
        if (m_line > m_header.records) {
            if (!m_rest.empty())
                throw BatchError(
                    fmt::format("a batch, line {}: {} bytes are left after the {} records of its header",
                                m_line + 1, m_rest.size(), m_header.records));
            return false;
        }
        text = nextLine();
    } while (isOfOther(text, isWanted));
    const JsonReading line(text, fmt::format("a batch, line {}", m_line));
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
        record.fields = fieldsOf(line);
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
