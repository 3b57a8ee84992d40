#pragma once

#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include <openssl/evp.h>
#include <openssl/x509.h>

/// What a certificate of a test says. As it stands, that of a good hub at 127.0.0.1.
struct CertificateText {
    std::string name = "hub";
    std::string alternativeNames = "IP:127.0.0.1,DNS:hub.example.org";
    bool isIssuer = false;
    std::string constraints{}; ///< in place of those that isIssuer means
    std::string keyUsage{};
    std::string extendedUsage{};
    std::string nameConstraints{};
    bool hasUnknownCritical = false;
    long validFrom = -3600; ///< seconds from now
    long validTo = 3600;
    int rsaBits = 0; ///< 0 for a key on P-256
    bool isSha1 = false;
};

/// A certificate with its key.
class Certificate {
public:
    /// Issued by `issuer`, or by itself for null.
    Certificate(const CertificateText& text, const Certificate* issuer);

    [[nodiscard]] X509* get() const { return m_certificate.get(); }
    [[nodiscard]] EVP_PKEY* key() const { return m_key.get(); }
    [[nodiscard]] std::string pem() const;
    [[nodiscard]] std::string keyPem() const;
    /// In the form of TLS_PINNED_KEY_STRING.
    [[nodiscard]] std::string pin() const;
    /// A list, signed by this one, that revokes `revoked` unless that is null.
    [[nodiscard]] std::string revocations(const Certificate* revoked, long validTo = 3600) const;
    /// One byte of the signature is another.
    void spoilSignature();

private:
    void addExtensions(const CertificateText& text, const Certificate* issuer);

    std::shared_ptr<EVP_PKEY> m_key;
    std::shared_ptr<X509> m_certificate;
};

/// Files that go with the test.
class CertificateFiles {
public:
    CertificateFiles();
    ~CertificateFiles();
    CertificateFiles(const CertificateFiles&) = delete;
    CertificateFiles& operator=(const CertificateFiles&) = delete;

    /// Writes it, readable by the owner alone, and returns its path.
    std::string write(const std::string& name, const std::string& text) const;

private:
    std::filesystem::path m_folder;
};
