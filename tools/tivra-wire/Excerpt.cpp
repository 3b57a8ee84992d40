#include "Excerpt.h"

#include "Frame.h"

namespace tivra_wire {

namespace {

constexpr std::size_t kColumnsBefore = 48;
constexpr std::size_t kColumnsAfter = 24;
constexpr std::string_view kIndent = "    ";
constexpr std::string_view kCut = "...";

std::string shownBefore(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        const std::string byte = printable(bytes.substr(bytes.size() - 1));
        if (text.size() + byte.size() > kColumnsBefore)
            return std::string(kCut) + text;
        text.insert(0, byte);
        bytes.remove_suffix(1);
    }
    return text;
}

std::string shownAfter(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        if (text.size() >= kColumnsAfter)
            return text.append(kCut);
        text += printable({&byte, 1});
    }
    return text;
}

} // namespace

std::string excerpt(Surroundings around, bool isLine) {
    if (around.before.empty() && around.after.empty())
        return {};
    if (isLine) {
        around.before.remove_prefix(around.before.rfind('\n') + 1); // nothing where there is none
        around.after = around.after.substr(0, around.after.find('\n'));
    }
    const std::string before = shownBefore(around.before);
    std::string text(kIndent);
    text.append(before).append(shownAfter(around.after)) += '\n';
    return text.append(kIndent).append(before.size(), ' ') + "^\n";
}

} // namespace tivra_wire
