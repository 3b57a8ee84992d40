#include "common/HostAddress.h"

#include "common/UsageError.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>

#include <charconv>
#include <cstring>
#include <memory>

namespace tivra_tools {

namespace {

std::string resolveName(const std::string& name, const std::string& text) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(name.c_str(), nullptr, &hints, &found);
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, [](addrinfo* list) {
        if (list != nullptr)
            freeaddrinfo(list);
    });
    if (error != 0 || found == nullptr)
        throw UsageError(fmt::format("cannot find an IPv4 address for \"{}\" of host \"{}\": {}", name, text,
                                     gai_strerror(error)));
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    char buffer[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, buffer, sizeof buffer);
    return buffer;
}

} // namespace

std::string resolveHost(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    unsigned port = 0;
    if (colon != std::string::npos && colon > 0) {
        const char* const end = text.data() + text.size();
        const auto [next, error] = std::from_chars(text.data() + colon + 1, end, port);
        if (next != end || error != std::errc{})
            port = 0;
    }
    if (port < 1 || port > 65535)
        throw UsageError(
            fmt::format("\"{}\" is no host: give ADDRESS:PORT with a port from 1 to 65535", text));
    return fmt::format("{}:{}", resolveName(text.substr(0, colon), text), port);
}

} // namespace tivra_tools
