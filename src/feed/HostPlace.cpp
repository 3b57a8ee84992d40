#include "feed/HostPlace.h"

#include <arpa/inet.h>

#include <utility>

#include <feed/Error.h>
#include <tp/eprintf.h>

#include "config/NameLookup.h"

namespace tivra_internal {
namespace {

using tivra::Error;

[[nodiscard]] bool isAddress(const std::string& text) {
    return ::inet_addr(text.c_str()) != INADDR_NONE || text == "255.255.255.255";
}

} // namespace

HostPlace::HostPlace(const std::string& given, bool mayBeLost) : host(given) {
    const std::size_t colon = given.rfind(':');
    std::string text = given.substr(0, colon);
    if (isAddress(text))
        return;
    const NameLookup found(text);
    if (!found.fault.empty() && !mayBeLost)
        throw Error({Error::Code::OpenFailed, Error::Phase::Connect,
                     "the address of " + text + " can't be looked up: " + found.fault,
                     "check the name, or give the address", given, 0, "", 0});
    if (!found.fault.empty()) {
        eprintf(EPF_WARN, "The address of the host %s can't be looked up: %s", text.c_str(),
                found.fault.c_str());
        return;
    }
    host = addressText(found.addresses.front()) + given.substr(colon);
    eprintf(EPF_INFO, "The host %s is %s", given.c_str(), host.c_str());
    name = std::move(text);
}

} // namespace tivra_internal
