#include "config/AllowedHubs.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include <tp/eprintf.h>

#include "config/NameLookup.h"

namespace tivra_internal {

namespace {

constexpr std::uint32_t kOneAddress = 0xFFFFFFFF;
constexpr std::uint32_t kSmallNetwork = 0xFFFFFF00;
constexpr std::uint32_t kLoopbackMask = 0xFF000000;
constexpr std::uint32_t kLoopback = 0x7F000000;
constexpr int kAddressBits = 32;

struct AddressAndMask {
    std::uint32_t address;
    std::uint32_t mask;
};

std::optional<std::uint32_t> addressOf(const std::string& text) {
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1)
        return std::nullopt;
    return ntohl(address.s_addr);
}

/// In the forms in which it can be dialled, of which there are more.
std::optional<std::uint32_t> dialledAddressOf(const std::string& text) {
    const in_addr_t address = ::inet_addr(text.c_str());
    return address == INADDR_NONE ? std::nullopt : std::optional(ntohl(address));
}

/// Of an address or a network.
std::optional<AddressAndMask> rangeOf(const std::string& text) {
    const std::size_t slash = text.find('/');
    const std::optional<std::uint32_t> address = addressOf(text.substr(0, slash));
    if (!address)
        return std::nullopt;
    if (slash == std::string::npos)
        return AddressAndMask{*address, kOneAddress};
    int bits = -1;
    const char* const end = text.data() + text.size();
    const auto [stop, fault] = std::from_chars(text.data() + slash + 1, end, bits);
    if (fault != std::errc() || stop != end || bits < 0 || bits > kAddressBits)
        return std::nullopt;
    const std::uint32_t mask = bits == 0 ? 0 : kOneAddress << (kAddressBits - bits);
    return AddressAndMask{*address & mask, mask};
}

std::vector<std::string> itemsOf(std::string_view listed) {
    std::vector<std::string> items;
    while (!listed.empty()) {
        std::string_view item = listed.substr(0, listed.find(','));
        listed.remove_prefix(std::min(listed.size(), item.size() + 1));
        const std::size_t first = item.find_first_not_of(' ');
        if (first == std::string_view::npos)
            continue;
        items.emplace_back(item.substr(first, item.find_last_not_of(' ') - first + 1));
    }
    return items;
}

std::string faultOfItem(const std::string& item) {
    if (rangeOf(item) || looksLikeName(item))
        return {};
    if (item.find(':') != std::string::npos)
        return item + " is no IPv4 address: hubs name each other by those alone, without a port";
    return item + " is no address, no network such as 10.1.0.0/16 and no name";
}

} // namespace

AllowedHubs::AllowedHubs(const std::vector<std::string>& configured, const std::string& listed) {
    for (const std::string& address : configured)
        addConfigured(address, listed.empty());
    for (const std::string& item : itemsOf(listed))
        addListed(item);
}

void AllowedHubs::addConfigured(const std::string& text, bool withNetwork) {
    const std::optional<std::uint32_t> address = dialledAddressOf(text);
    if (!address)
        return; // it can't be dialled either
    std::uint32_t mask = kOneAddress;
    if (withNetwork)
        mask = (*address & kLoopbackMask) == kLoopback ? kLoopbackMask : kSmallNetwork;
    m_networks.push_back({*address & mask, mask});
}

void AllowedHubs::addListed(const std::string& item) {
    if (const std::string fault = faultOfItem(item); !fault.empty())
        eprintf(EPF_WARN, "ALLOWED_HUBS_STRING: %s", fault.c_str());
    else if (const std::optional<AddressAndMask> range = rangeOf(item))
        m_networks.push_back({range->address, range->mask});
    else
        addName(item);
}

void AllowedHubs::addName(const std::string& name) {
    const NameLookup found = lookUpName(name);
    if (!found.fault.empty())
        eprintf(EPF_WARN, "ALLOWED_HUBS_STRING: %s can't be looked up: %s", name.c_str(),
                found.fault.c_str());
    for (const std::uint32_t address : found.addresses)
        m_networks.push_back({address, kOneAddress});
}

bool AllowedHubs::contain(const std::string& text) const {
    const std::optional<std::uint32_t> address = dialledAddressOf(text);
    return address && std::any_of(m_networks.begin(), m_networks.end(), [&](const Network& network) {
               return (*address & network.mask) == network.address;
           });
}

std::string AllowedHubs::faultOf(std::string_view listed) {
    for (const std::string& item : itemsOf(listed))
        if (std::string fault = faultOfItem(item); !fault.empty())
            return fault;
    return {};
}

} // namespace tivra_internal
