#include "config/NameLookup.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>

#include <tp/eprintf.h>

#include "config/NameResolver.h"

namespace tivra_internal {
namespace {

/// No real name stands for more; what a resolver says may come from far away.
constexpr std::size_t kMostAddresses = 32;

std::atomic<NameResolver*> g_inItsPlace{nullptr};

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

[[nodiscard]] NameLookup askSystem(const std::string& name) {
    NameLookup result;
    int code = 0;
    const Entries found = entriesOf(name, AF_INET, code);
    for (const addrinfo* entry = found.get(); entry != nullptr; entry = entry->ai_next) {
        const auto* const address = reinterpret_cast<const sockaddr_in*>(entry->ai_addr);
        const std::uint32_t number = ntohl(address->sin_addr.s_addr);
        if (std::find(result.addresses.begin(), result.addresses.end(), number) == result.addresses.end())
            result.addresses.push_back(number);
    }
    if (!result.addresses.empty())
        return result;
    int codeOfIpv6 = 0;
    if (entriesOf(name, AF_INET6, codeOfIpv6) != nullptr)
        result.fault =
            "it has IPv6 addresses only, and hubs are reached by IPv4, by which they name each other";
    else
        result.fault = ::gai_strerror(code);
    return result;
}

} // namespace

void NameResolver::replace(NameResolver* resolver) noexcept {
    g_inItsPlace = resolver;
}

NameLookup lookUpName(const std::string& name) {
    if (!looksLikeName(name))
        return {{}, "it is neither an IPv4 address nor a name"};
    NameResolver* const resolver = g_inItsPlace;
    NameLookup result = resolver != nullptr ? resolver->lookUp(name) : askSystem(name);
    if (result.addresses.size() > kMostAddresses) {
        eprintf(EPF_WARN, "The name %s has %zu addresses, of which the first %zu count", name.c_str(),
                result.addresses.size(), kMostAddresses);
        result.addresses.resize(kMostAddresses);
    }
    return result;
}

bool looksLikeName(const std::string& text) {
    const auto isOfNames = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '-' || c == '_';
    };
    return std::all_of(text.begin(), text.end(), isOfNames) &&
           text.find_first_not_of("0123456789.") != std::string::npos;
}

bool isAddress(const std::string& text) {
    // The text of the broadcast address reads like an error and is none.
    return ::inet_addr(text.c_str()) != INADDR_NONE || text == "255.255.255.255";
}

std::string addressText(std::uint32_t address) {
    const in_addr wire{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return ::inet_ntop(AF_INET, &wire, text.data(), text.size());
}

} // namespace tivra_internal
