#include "common/HostAddress.h"

#include "common/UsageError.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>

#include <charconv>
#include <cstring>
#include <memory>
#include <string_view>

namespace tivra_tools {

namespace {

using Addresses = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

/// The addresses of a name in one family, and getaddrinfo's code.
Addresses lookUp(const std::string& name, int family, int& error) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    error = getaddrinfo(name.c_str(), nullptr, &hints, &found);
    return {found, [](addrinfo* list) {
                if (list != nullptr)
                    freeaddrinfo(list);
            }};
}

/// All IPv4 addresses of a name, in the resolver's order.
std::vector<std::string> resolveName(const std::string& name, const std::string& text) {
    int error = 0;
    const Addresses found = lookUp(name, AF_INET, error);
    std::vector<std::string> texts;
    for (const addrinfo* entry = found.get(); entry != nullptr; entry = entry->ai_next) {
        sockaddr_in address{};
        std::memcpy(&address, entry->ai_addr, sizeof address);
        char buffer[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &address.sin_addr, buffer, sizeof buffer);
        texts.emplace_back(buffer);
    }
    if (!texts.empty())
        return texts;
    int errorOfIpv6 = 0;
    if (lookUp(name, AF_INET6, errorOfIpv6) != nullptr)
        throw UsageError(fmt::format("\"{}\" of \"{}\" has IPv6 addresses only, and IPv4 is spoken here, "
                                     "since hubs name each other by "
                                     "that: give a name or an address of IPv4",
                                     name, text));
    const char* const advice =
        error == EAI_AGAIN ? "the name service doesn't answer; give an address" : "check the name";
    throw UsageError(fmt::format("cannot find an IPv4 address for \"{}\" of host \"{}\": {}; {}", name, text,
                                 gai_strerror(error), advice));
}

/// "[::1]:9", or what has more colons than a name and a port.
void refuseIpv6(const std::string& text) {
    if (text.find(':') != text.rfind(':') || text.find('[') != std::string::npos)
        throw UsageError(fmt::format("\"{}\" is an IPv6 address, and IPv4 is spoken here: give an IPv4 "
                                     "address, or a name that has one, as ADDRESS:PORT",
                                     text));
}

/// -1 for what is no port.
int portOf(std::string_view text) {
    int port = -1;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, port);
    return next == end && error == std::errc{} && port >= 0 && port <= 65535 ? port : -1;
}

} // namespace

std::vector<std::string> resolveHost(const std::string& text) {
    refuseIpv6(text);
    const std::size_t colon = text.rfind(':');
    const bool hasBoth = colon != std::string::npos && colon > 0;
    const int port = hasBoth ? portOf(std::string_view(text).substr(colon + 1)) : -1;
    if (port < 1)
        throw UsageError(
            fmt::format("\"{}\" is no host: give ADDRESS:PORT with a port from 1 to 65535", text));
    std::vector<std::string> places = resolveName(text.substr(0, colon), text);
    for (std::string& place : places)
        place.append(":").append(std::to_string(port));
    return places;
}

std::string resolveListener(const std::string& text) {
    refuseIpv6(text);
    const std::size_t colon = text.rfind(':');
    const bool hasAddress = colon != std::string::npos;
    const int port = portOf(std::string_view(text).substr(hasAddress ? colon + 1 : 0));
    if (port < 0 || colon == 0)
        throw UsageError(fmt::format(
            "\"{}\" is nothing to listen at: give PORT or ADDRESS:PORT with a port from 0 to 65535", text));
    return fmt::format("{}:{}", hasAddress ? resolveName(text.substr(0, colon), text).front() : "127.0.0.1",
                       port);
}

} // namespace tivra_tools
