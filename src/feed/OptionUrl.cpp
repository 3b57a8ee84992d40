#include "feed/OptionUrl.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "feed/OptionSetter.h"

namespace tivra_internal {
namespace {

constexpr std::string_view kScheme = "tivra://";
/// The same with TLS.
constexpr std::string_view kTlsScheme = "tls://";
constexpr const char* kWhere = "the URL";
constexpr std::size_t kLongestUrl = 8192;

/// Takes what stands before the separator off the text, and the separator with it; all of it without one.
[[nodiscard]] std::string_view takeUntil(std::string_view& text, char separator) {
    const std::string_view taken = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(text.size(), taken.size() + 1));
    return taken;
}

[[nodiscard]] std::string decode(std::string_view text, const char* part) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded.push_back(text[i]);
            continue;
        }
        unsigned char byte = 0;
        const std::string_view digits = text.substr(i + 1, 2);
        const auto [end, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        if (digits.size() != 2 || fault != std::errc() || end != digits.data() + digits.size())
            refuseOptionAt(kWhere, std::string("a % in the ").append(part).append(" has no two digits"),
                           "write % itself as %25");
        decoded.push_back(static_cast<char>(byte));
        i += 2;
    }
    return decoded;
}

void readIdentity(std::string_view identity, OptionSetter& setter) {
    const bool hasPassword = identity.find(':') != std::string_view::npos;
    const std::string_view user = takeUntil(identity, ':');
    if (!user.empty())
        setter.set("user", decode(user, "user"), kWhere);
    if (hasPassword)
        setter.set("password", decode(identity, "password"), kWhere);
}

void readQuery(std::string_view query, OptionSetter& setter) {
    while (!query.empty()) {
        std::string_view value = takeUntil(query, '&');
        if (value.find('=') == std::string_view::npos)
            refuseOptionAt(kWhere, "there is an option without a value", "give name=value");
        const std::string name = decode(takeUntil(value, '='), "name of an option");
        setter.set(name, decode(value, "value of an option"), kWhere);
    }
}

} // namespace

void readUrl(std::string_view url, OptionSetter& setter) {
    const bool isTls = url.substr(0, kTlsScheme.size()) == kTlsScheme;
    if (!isTls && url.substr(0, kScheme.size()) != kScheme)
        refuseOptionAt(kWhere, "it doesn't begin with tivra://, or with tls://",
                       "give tivra://user@host:port");
    if (url.size() > kLongestUrl)
        refuseOptionAt(kWhere, "it is too long", "give 8192 characters at most");
    url.remove_prefix(isTls ? kTlsScheme.size() : kScheme.size());
    if (isTls)
        setter.set("tls", "true", kWhere);

    std::string_view hosts = url.substr(0, url.find_first_of("/?#"));
    const std::string_view rest = url.substr(hosts.size());
    // A password with such a character would be taken for a host otherwise, and be shown.
    if (rest.find_first_of("@#") != std::string_view::npos)
        refuseOptionAt(kWhere, "there is a @ or a # after its hosts",
                       "write / ? # @ as %2F %3F %23 %40 in user, password and values");
    if (const std::size_t at = hosts.rfind('@'); at != std::string_view::npos) {
        readIdentity(hosts.substr(0, at), setter);
        hosts.remove_prefix(at + 1);
    }
    if (!hosts.empty())
        setter.set("hosts", hosts, kWhere);

    std::string_view query = rest;
    if (const std::string_view path = takeUntil(query, '?'); !path.empty() && path != "/")
        refuseOptionAt(kWhere, "it has a path", "give options as ?name=value");
    readQuery(query, setter);
}

} // namespace tivra_internal
