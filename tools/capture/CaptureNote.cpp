#include "capture/CaptureNote.h"

#include <algorithm>

namespace tivra_capture {

namespace {

constexpr std::string_view kKind = "kind";

void append(std::string& body, std::string_view name, std::string_view value) {
    body += name;
    body += '=';
    for (const char c : value)
        body += c == '|' || static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
}

} // namespace

std::string_view Note::value(std::string_view name) const {
    const auto found =
        std::find_if(values.begin(), values.end(), [&](const auto& pair) { return pair.first == name; });
    return found == values.end() ? std::string_view() : std::string_view(found->second);
}

std::string Note::body() const {
    std::string body = "!";
    append(body, kKind, kind);
    for (const auto& [name, value] : values) {
        body += '|';
        append(body, name, value);
    }
    return body;
}

Note noteOf(std::string_view body) {
    Note note;
    body.remove_prefix(isNote(body) ? 1 : 0);
    while (!body.empty()) {
        const std::string_view piece = body.substr(0, body.find('|'));
        body.remove_prefix(std::min(body.size(), piece.size() + 1));
        const std::size_t equals = piece.find('=');
        if (equals == std::string_view::npos)
            continue;
        const std::string_view name = piece.substr(0, equals);
        if (name == kKind && note.kind.empty())
            note.kind = piece.substr(equals + 1);
        else
            note.values.emplace_back(name, piece.substr(equals + 1));
    }
    return note;
}

} // namespace tivra_capture
