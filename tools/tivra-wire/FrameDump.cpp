#include "FrameDump.h"

#include "kvnparse/FrameFormat.h"

#include <fmt/format.h>

#include <algorithm>

namespace tivra_wire {

namespace {

const char* typeName(const KVNAPI::Token* token) {
    if (token == nullptr)
        return "unknown";
    static constexpr const char* kNames[] = {"int", "double", "string"};
    return kNames[token->storage];
}

std::string fieldLine(std::uint64_t offset, std::string_view field, const Dictionary& dictionary) {
    const std::size_t equals = field.find('=');
    const std::string id(field.substr(0, equals));
    const KVNAPI::Token* const token = dictionary.find(id);
    const std::string_view value = field.substr(equals + 1);
    const bool isDeleted = value.empty() && token != nullptr && token->storage != KVNAPI::Token::TY_STRING;
    return fmt::format("{:>10}  {:>6}  {:<7}  {:<32}  {}\n", offset,
                       token != nullptr ? std::to_string(token->kvnid) : printable(id), typeName(token),
                       token != nullptr ? printable(token->name) : "-",
                       isDeleted ? "(deleted)" : printable(value));
}

} // namespace

std::string dump(const Frame& frame, Form form, const Dictionary& dictionary) {
    const bool isLine = form == Form::Vkvn;
    std::string text = fmt::format("{} {} at byte {}, {} bytes\n", isLine ? "line" : "frame", frame.number,
                                   frame.offset, frame.bytes.size());
    const std::size_t bodyEnd = frame.bytes.size() - 1;
    for (std::size_t from = isLine ? 0 : KVNAPI::kKvnHeaderSize; from < bodyEnd;) {
        // No value that was read well holds the separator.
        const std::size_t to = std::min(frame.bytes.find('|', from), bodyEnd);
        text += fieldLine(frame.offset + from, frame.bytes.substr(from, to - from), dictionary);
        from = to + 1;
    }
    return text;
}

} // namespace tivra_wire
