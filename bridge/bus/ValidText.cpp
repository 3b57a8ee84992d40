#include "bus/ValidText.h"

#include "bus/JsonText.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tivra_bus {

bool isAscii(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::string validText(std::string_view bytes) {
    if (isAscii(bytes))
        return std::string(bytes);
    std::string quoted;
    appendQuoted(quoted, bytes);
    return nlohmann::json::parse(quoted).get<std::string>();
}

} // namespace tivra_bus
