#include "config/NameLookup.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <memory>

namespace tivra_internal {
namespace {

using Entries = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

/// @param fault  gets getaddrinfo's code
[[nodiscard]] Entries entriesOf(const std::string& name, int family, int& fault) {
    addrinfo wanted{};
    wanted.ai_family = family;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    fault = ::getaddrinfo(name.c_str(), nullptr, &wanted, &found);
    return {found, [](addrinfo* list) {
                if (list != nullptr)
                    ::freeaddrinfo(list);
            }};
}

} // namespace

NameLookup::NameLookup(const std::string& name) {
    int code = 0;
    const Entries found = entriesOf(name, AF_INET, code);
    for (const addrinfo* entry = found.get(); entry != nullptr; entry = entry->ai_next) {
        const auto* const address = reinterpret_cast<const sockaddr_in*>(entry->ai_addr);
        addresses.push_back(ntohl(address->sin_addr.s_addr));
    }
    if (!addresses.empty())
        return;
    int codeOfIpv6 = 0;
    if (entriesOf(name, AF_INET6, codeOfIpv6) != nullptr)
        fault = "it has IPv6 addresses only, and hubs are reached by IPv4";
    else
        fault = ::gai_strerror(code);
}

std::string addressText(std::uint32_t address) {
    const in_addr wire{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return ::inet_ntop(AF_INET, &wire, text.data(), text.size());
}

} // namespace tivra_internal
