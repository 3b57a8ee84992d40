#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tivra_capture {

/// What a recorder has to say between the messages of a capture: that the connection was interrupted, say. It
/// stands among them as a body that no feed sends, `!kind=KIND|NAME=VALUE...`.
struct Note {
    using Values = std::vector<std::pair<std::string, std::string>>;

    std::string kind;
    Values values;

    /// The value of a name, empty for none.
    [[nodiscard]] std::string_view value(std::string_view name) const;
    /// As the body of a message. What would end a value, or a line, becomes a blank.
    [[nodiscard]] std::string body() const;
};

/// Whether a body is a note. No field of a message begins so.
[[nodiscard]] inline bool isNote(std::string_view body) {
    return !body.empty() && body.front() == '!';
}

/// Takes a note apart, whatever its bytes are: pieces without "=" are left out.
[[nodiscard]] Note noteOf(std::string_view body);

} // namespace tivra_capture
