#include "config/ValueFault.h"

#include <algorithm>
#include <cstddef>

namespace tivra_internal {

namespace {

constexpr std::size_t kMaxValue = 4095;

} // namespace

const char* valueFault(std::string_view text) noexcept {
    if (text.size() > kMaxValue)
        return "it is longer than 4095 characters";
    const bool isPlain = std::none_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte == '|' || byte < 0x20 || byte == 0x7f;
    });
    return isPlain ? nullptr : "it holds a separator or a control character";
}

} // namespace tivra_internal
