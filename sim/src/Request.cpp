#include "tivra_sim/Request.h"

#include "tivra_sim/Wire.h"

#include <charconv>

namespace tivra_sim {

std::string Request::value(int token) const {
    return std::string(findValue(text, token));
}

bool Request::has(int token) const {
    bool found = false;
    static_cast<void>(findValue(text, token, &found));
    return found;
}

std::int64_t Request::number(int token, std::int64_t fallback) const {
    const std::string_view digits = findValue(text, token);
    std::int64_t result = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), result);
    return error == std::errc{} && end == digits.data() + digits.size() && !digits.empty() ? result
                                                                                           : fallback;
}

} // namespace tivra_sim
