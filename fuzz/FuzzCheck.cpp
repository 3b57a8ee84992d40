#include "FuzzCheck.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

void expectEqual(std::string_view what, std::string_view ours, std::string_view reference) {
    if (ours == reference)
        return;
    const auto print = [](const char* title, std::string_view text) {
        std::fprintf(stderr, "%s (%zu bytes):\n%.*s\n", title, text.size(), static_cast<int>(text.size()),
                     text.data());
    };
    print("differs", what);
    print("ours", ours);
    print("reference", reference);
    std::abort();
}

unsigned Input::byte() {
    const std::string_view next = take(1);
    return next.empty() ? 0 : static_cast<unsigned char>(next.front());
}

std::string_view Input::take(std::size_t count) {
    const std::string_view taken = m_rest.substr(0, count);
    m_rest.remove_prefix(taken.size());
    return taken;
}

std::vector<std::string_view> piecesOf(std::string_view stream, unsigned seed) {
    std::vector<std::string_view> pieces;
    std::uint32_t state = seed;
    while (!stream.empty()) {
        state = state * 1664525 + 1013904223;
        // Short and long reads alike: a length of one to eleven bits.
        const std::size_t length = 1 + (state >> 8) % (std::uint32_t{2} << (state >> 24) % 11);
        pieces.push_back(stream.substr(0, length));
        stream.remove_prefix(std::min(length, stream.size()));
    }
    return pieces;
}

} // namespace fuzz
