#include "tls/PinnedKeys.h"

#include <array>
#include <cstddef>
#include <string_view>

#include <openssl/evp.h>
#include <openssl/sha.h>

namespace tivra_internal {
namespace {

constexpr std::string_view kHash = "sha256/";
constexpr std::size_t kBase64Length = (SHA256_DIGEST_LENGTH + 2) / 3 * 4;

[[nodiscard]] std::string pinOf(const X509* certificate) {
    unsigned char* encoded = nullptr;
    const int length =
        certificate == nullptr ? -1 : i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &encoded);
    if (length < 0)
        return {};
    std::array<unsigned char, SHA256_DIGEST_LENGTH> hash{};
    const bool isHashed = EVP_Digest(encoded, static_cast<std::size_t>(length), hash.data(), nullptr,
                                     EVP_sha256(), nullptr) == 1;
    OPENSSL_free(encoded);
    if (!isHashed)
        return {};
    std::array<unsigned char, kBase64Length + 1> text{};
    EVP_EncodeBlock(text.data(), hash.data(), static_cast<int>(hash.size()));
    return std::string(kHash) + reinterpret_cast<const char*>(text.data());
}

[[nodiscard]] bool isPin(std::string_view text) {
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    return text.size() == kHash.size() + kBase64Length && text.substr(0, kHash.size()) == kHash &&
           text.back() == '=' && text.find_first_not_of(kDigits, kHash.size()) == text.size() - 1;
}

} // namespace

bool PinnedKeys::read(const std::string& text, PinnedKeys& pins) {
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::string_view pin = rest.substr(0, rest.find(','));
        if (!isPin(pin))
            return false;
        pins.m_pins.emplace(pin);
        rest.remove_prefix(pin.size());
        if (!rest.empty())
            rest.remove_prefix(1);
    }
    return true;
}

bool PinnedKeys::accept(const X509* certificate, std::string& found) const {
    if (m_pins.empty())
        return true;
    found = pinOf(certificate);
    return m_pins.count(found) != 0;
}

} // namespace tivra_internal
