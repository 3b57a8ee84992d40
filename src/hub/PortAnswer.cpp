#include "hub/PortAnswer.h"

#include <tp/eprintf.h>

namespace tivra_internal {

bool PortAnswer::isReadable(const char* operation, bool wantsHost) const {
    const auto isDefined = [operation](const MessageField& field, const char* word) {
        if (!field.isDefined())
            eprintf(EPF_CRIT, "HubClient::%s: %s not defined!", operation, word);
        return field.isDefined();
    };
    if ((wantsHost && !isDefined(host, "HOST.SERVER.IP")) || !isDefined(port, "CLIENT.PORT") ||
        !isDefined(status, "ENUM.QUERY.STATUS"))
        return false;
    if (!status.isPresent())
        eprintf(EPF_WARN, "HubClient::%s: ENUM.QUERY.STATUS not present!", operation);
    return status.isPresent();
}

void PortAnswer::noteInvalidPort(int64_t number, const std::string& host) {
    eprintf(EPF_WARN, "HUB lists an invalid port (%ld) for %s; ignored", static_cast<long>(number),
            host.c_str());
}

} // namespace tivra_internal
