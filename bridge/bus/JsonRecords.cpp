#include "bus/JsonRecords.h"

#include "bus/FieldsText.h"
#include "bus/JsonText.h"

#include <algorithm>
#include <chrono>

namespace tivra_bus {

namespace {

constexpr std::string_view kType = R"({"type":")";
constexpr std::string_view kNumber = R"(,"n":)";
constexpr std::string_view kFields = R"(,"fields":)";
/// Enough for what surrounds the fields, the symbol aside.
constexpr std::size_t kFrameBytes = 128;
constexpr std::size_t kQuotes = 2;
/// Of a byte that has to be escaped.
constexpr std::size_t kMostEscape = 6;

std::size_t mostBytesOf(const SymbolImage::Entry& entry) {
    const bool isText = entry.type == tivra::Value::Type::Text;
    return entry.name->text.size() + (isText ? kQuotes + kMostEscape * entry.content.text.length : kMostPut);
}

char* putEntry(char* to, const SymbolImage& image, const SymbolImage::Entry& entry) {
    to = putText(to, entry.name->text);
    switch (entry.type) {
    case tivra::Value::Type::Integer:
        return putInteger(to, entry.content.integer);
    case tivra::Value::Type::Double:
        return putDouble(to, entry.content.number);
    case tivra::Value::Type::Time:
        return putTime(to, tivra::TimePoint(std::chrono::microseconds(entry.content.integer)));
    case tivra::Value::Type::Text:
        break;
    }
    return putQuoted(to, image.textOf(entry));
}

/// Ends the fields that began there: the first one's comma becomes the bracket.
char* endFields(char* begin, char* to) {
    if (begin == to)
        ++to;
    *begin = '{';
    *to++ = '}';
    return to;
}

/// Appends what `write` puts to where it is told, up to so many bytes, and returns the end of.
template<class Write>
void appendUpTo(std::string& out, std::size_t most, Write&& write) {
    const std::size_t begin = out.size();
    out.resize(begin + most);
    out.resize(static_cast<std::size_t>(write(out.data() + begin) - out.data()));
}

/// The object of the fields that `forEach` goes through.
template<class ForEach>
std::size_t mostBytesOf(ForEach&& forEach) {
    std::size_t most = 0;
    forEach([&most](const SymbolImage::Entry& entry) { most += mostBytesOf(entry); });
    return most;
}

template<class ForEach>
char* putFields(char* to, const SymbolImage& image, ForEach&& forEach) {
    char* const begin = to;
    forEach([&](const SymbolImage::Entry& entry) { to = putEntry(to, image, entry); });
    return endFields(begin, to);
}

void appendOneByOne(std::string& out, const ValuesRecord& record) {
    out += kType;
    out += nameOf(record.type);
    out += '"';
    out += record.name.text;
    out += kNumber;
    appendNumber(out, record.number);
    out += kFields;
    appendFields(out, *record.update);
    out += "}\n";
}

} // namespace

void JsonRecords::append(std::string& out, const ValuesRecord& record, BatchFields& /*fields*/) const {
    if (record.change != nullptr && !record.change->isWhole) {
        appendOneByOne(out, record);
        return;
    }
    const std::vector<SymbolImage::Entry>& entries = record.image.entries();
    const auto forEach = [&](auto&& call) {
        if (record.change == nullptr)
            std::for_each(entries.begin(), entries.end(), call);
        else
            for (const std::uint32_t index : record.change->fields)
                call(entries[index]);
    };
    const std::size_t most = kFrameBytes + record.name.text.size() + mostBytesOf(forEach);
    appendUpTo(out, most, [&](char* to) {
        to = putText(to, kType);
        to = putText(to, nameOf(record.type));
        *to++ = '"';
        to = putText(to, record.name.text);
        to = putText(to, kNumber);
        to = putNumber(to, record.number);
        to = putText(to, kFields);
        to = putFields(to, record.image, forEach);
        return putText(to, "}\n");
    });
}

std::string lastMessage(const SymbolName& name, std::uint64_t number, std::uint64_t epoch,
                        std::string_view state, std::string_view time, const SymbolImage& image) {
    std::string text = R"({"tivra":1)";
    text += name.text;
    text += R"(,"epoch":)";
    appendNumber(text, epoch);
    text += kNumber;
    appendNumber(text, number);
    text += R"(,"state":")";
    text += state;
    text += R"(","time":")";
    text += time;
    text += '"';
    text += kFields;
    const std::vector<SymbolImage::Entry>& entries = image.entries();
    const auto forEach = [&entries](auto&& call) { std::for_each(entries.begin(), entries.end(), call); };
    appendUpTo(text, kFrameBytes + mostBytesOf(forEach),
               [&](char* to) { return putFields(to, image, forEach); });
    text += '}';
    return text;
}

} // namespace tivra_bus
