#pragma once

#include <set>
#include <string>

#include <openssl/x509.h>

namespace tivra_internal {

/// The public keys that a hub may have, by their hashes: a certificate with another is refused, whoever has
/// issued it.
class PinnedKeys {
public:
    /// The form of one is "sha256/" and 44 characters of Base64; they stand between commas.
    [[nodiscard]] static bool read(const std::string& text, PinnedKeys& pins);

    /// True without pins. `found` gets the certificate's.
    [[nodiscard]] bool accept(const X509* certificate, std::string& found) const;

private:
    std::set<std::string> m_pins;
};

} // namespace tivra_internal
