#include "hub/handshake/HandshakeContext.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

namespace tivra_internal {

namespace {

constexpr std::size_t kMaxStartUpRequest = 256;

} // namespace

int HandshakeContext::ask(int tag, const char* format, ...) {
    std::array<char, kMaxStartUpRequest> text;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    const int result = port.sendRequest(text.data(), nullptr);
    if (result == 1)
        state.m_outstandingTags |= 1U << tag;
    return result;
}

const char* HandshakeContext::retCodeText(int64_t code) const {
    return dictionaries.getRetCodeDesc(static_cast<int>(std::clamp<int64_t>(code, INT32_MIN, INT32_MAX)));
}

} // namespace tivra_internal
