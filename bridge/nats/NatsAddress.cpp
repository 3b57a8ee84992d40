#include "nats/NatsAddress.h"

#include "bus/BusError.h"

#include <fmt/format.h>

#include <sstream>

namespace tivra_bus {

NatsAddress natsAddressOf(const EngineOptions& options) {
    const std::string& url = options.url;
    const std::size_t scheme = url.find("://");
    const std::string kind = url.substr(0, scheme);
    if (scheme == std::string::npos || (kind != "nats" && kind != "tls"))
        throw BusError(
            fmt::format("\"{}\": nats://HOST[:PORT],... or tls://HOST[:PORT],... was wanted", url));
    if (url.find('@') != std::string::npos)
        throw BusError(
            "the address of the engine holds a user or a password: put them into a credentials file");
    NatsAddress address;
    std::istringstream list(url.substr(scheme + 3));
    for (std::string server; std::getline(list, server, ',');)
        if (!server.empty())
            address.servers.push_back(fmt::format("{}://{}", kind, server));
    if (address.servers.empty())
        throw BusError(fmt::format("\"{}\" names no server", url));
    address.isSecure = kind == "tls";
    address.name = options.name;
    address.credentialsFile = options.credentialsFile;
    address.caFile = options.caFile;
    address.certificateFile = options.certificateFile;
    address.keyFile = options.keyFile;
    return address;
}

} // namespace tivra_bus
