#include "hub/HubVersion.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include <tp/eprintf.h>

namespace tivra_internal {

namespace {

int leadingNumber(const std::string& text) {
    return static_cast<int>(std::clamp<long>(std::strtol(text.c_str(), nullptr, 10), INT_MIN, INT_MAX));
}

} // namespace

HubVersion parseHubVersion(const std::string& text) {
    const std::size_t firstDot = text.find('.');
    if (firstDot == std::string::npos) {
        eprintf(EPF_WARN, "Unable to parse HUB major VERSION");
        return {-1, -1};
    }
    const std::size_t start = text[0] == 'V' ? 1 : 0;
    HubVersion version;
    version.major = leadingNumber(text.substr(start, firstDot - start));

    const std::size_t secondDot = text.find('.', firstDot + 1);
    if (secondDot == std::string::npos) {
        eprintf(EPF_WARN, "Unable to parse HUB minor VERSION");
        version.minor = -1;
    } else {
        version.minor = leadingNumber(text.substr(firstDot + 1, secondDot - firstDot - 1));
    }
    return version;
}

} // namespace tivra_internal
