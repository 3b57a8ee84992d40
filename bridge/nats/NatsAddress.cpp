#include "nats/NatsAddress.h"

#include "bus/BusError.h"

#include <fmt/format.h>

#include <sstream>
#include <utility>

namespace tivra_bus {

void setNatsServers(NatsAddress& address, const std::string& url) {
    const std::size_t scheme = url.find("://");
    const std::string kind = url.substr(0, scheme);
    if (scheme == std::string::npos || (kind != "nats" && kind != "tls"))
        throw BusError(
            fmt::format("\"{}\": nats://HOST[:PORT],... or tls://HOST[:PORT],... was wanted", url));
    if (url.find('@') != std::string::npos)
        throw BusError(
            "the address of the engine holds a user or a password: put them into a credentials file");
    std::vector<std::string> servers;
    std::istringstream list(url.substr(scheme + 3));
    for (std::string server; std::getline(list, server, ',');)
        if (!server.empty())
            servers.push_back(kind + "://" + server);
    if (servers.empty())
        throw BusError(fmt::format("\"{}\" names no server", url));
    address.servers = std::move(servers);
    address.isSecure = address.isSecure || kind == "tls";
}

} // namespace tivra_bus
