#include "tls/Certificates.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <fstream>
#include <stdexcept>

#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>
#include <openssl/x509v3.h>

namespace {

void check(bool isGood) {
    if (!isGood)
        throw std::runtime_error("a certificate of a test can't be made");
}

using Memory = std::unique_ptr<BIO, decltype(&BIO_free)>;

std::string textOf(BIO* bio) {
    char* bytes = nullptr;
    const auto length = BIO_ctrl(bio, BIO_CTRL_INFO, 0, &bytes);
    return {bytes, static_cast<std::size_t>(length)};
}

void extend(X509* certificate, X509* issuer, int kind, const std::string& value) {
    if (value.empty())
        return;
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()), X509_EXTENSION_free);
    check(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1);
}

void addUnknownCritical(X509* certificate) {
    const std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> kind(OBJ_txt2obj("1.2.3.4.5.6.7.8", 1),
                                                                         ASN1_OBJECT_free);
    const std::unique_ptr<ASN1_OCTET_STRING, decltype(&ASN1_OCTET_STRING_free)> value(ASN1_OCTET_STRING_new(),
                                                                                      ASN1_OCTET_STRING_free);
    constexpr unsigned char kNull[] = {5, 0};
    check(ASN1_OCTET_STRING_set(value.get(), kNull, sizeof kNull) == 1);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509_EXTENSION_create_by_OBJ(nullptr, kind.get(), 1, value.get()), X509_EXTENSION_free);
    check(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1);
}

std::atomic<long> serial{1};

} // namespace

Certificate::Certificate(const CertificateText& text, const Certificate* issuer)
    : m_key(text.rsaBits > 0 ? EVP_RSA_gen(static_cast<unsigned>(text.rsaBits))
                             : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"),
            EVP_PKEY_free)
    , m_certificate(X509_new(), X509_free) {
    check(m_key != nullptr && m_certificate != nullptr);
    X509* const made = get();
    X509_set_version(made, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made), serial++);
    X509_gmtime_adj(X509_getm_notBefore(made), text.validFrom);
    X509_gmtime_adj(X509_getm_notAfter(made), text.validTo);
    X509_set_pubkey(made, key());
    X509_NAME_add_entry_by_txt(X509_get_subject_name(made), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(text.name.c_str()), -1, -1, 0);
    X509_set_issuer_name(made, X509_get_subject_name(issuer != nullptr ? issuer->get() : made));
    addExtensions(text, issuer);
    check(X509_sign(made, issuer != nullptr ? issuer->key() : key(),
                    text.isSha1 ? EVP_sha1() : EVP_sha256()) > 0);
}

void Certificate::addExtensions(const CertificateText& text, const Certificate* issuer) {
    X509* const made = get();
    X509* const above = issuer != nullptr ? issuer->get() : made;
    const std::string constraints = text.isIssuer ? "critical,CA:TRUE" : "critical,CA:FALSE";
    extend(made, above, NID_basic_constraints, text.constraints.empty() ? constraints : text.constraints);
    extend(made, above, NID_subject_key_identifier, "hash");
    extend(made, above, NID_key_usage, text.keyUsage);
    extend(made, above, NID_ext_key_usage, text.extendedUsage);
    extend(made, above, NID_name_constraints, text.nameConstraints);
    if (!text.isIssuer)
        extend(made, above, NID_subject_alt_name, text.alternativeNames);
    if (text.hasUnknownCritical)
        addUnknownCritical(made);
}

std::string Certificate::pem() const {
    const Memory bio(BIO_new(BIO_s_mem()), BIO_free);
    check(PEM_write_bio_X509(bio.get(), get()) == 1);
    return textOf(bio.get());
}

std::string Certificate::keyPem() const {
    const Memory bio(BIO_new(BIO_s_mem()), BIO_free);
    check(PEM_write_bio_PrivateKey(bio.get(), key(), nullptr, nullptr, 0, nullptr, nullptr) == 1);
    return textOf(bio.get());
}

std::string Certificate::pin() const {
    unsigned char* encoded = nullptr;
    const int length = i2d_PUBKEY(key(), &encoded);
    check(length > 0);
    std::array<unsigned char, SHA256_DIGEST_LENGTH> hash{};
    SHA256(encoded, static_cast<std::size_t>(length), hash.data());
    OPENSSL_free(encoded);
    std::array<unsigned char, 64> text{};
    EVP_EncodeBlock(text.data(), hash.data(), static_cast<int>(hash.size()));
    return std::string("sha256/") + reinterpret_cast<const char*>(text.data());
}

std::string Certificate::revocations(const Certificate* revoked, long validTo) const {
    const std::unique_ptr<X509_CRL, decltype(&X509_CRL_free)> list(X509_CRL_new(), X509_CRL_free);
    X509_CRL_set_version(list.get(), X509_CRL_VERSION_2);
    X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(get()));
    const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> from(X509_gmtime_adj(nullptr, -7200),
                                                                     ASN1_TIME_free);
    const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> until(X509_gmtime_adj(nullptr, validTo),
                                                                      ASN1_TIME_free);
    X509_CRL_set1_lastUpdate(list.get(), from.get());
    X509_CRL_set1_nextUpdate(list.get(), until.get());
    if (revoked != nullptr) {
        X509_REVOKED* const entry = X509_REVOKED_new();
        X509_REVOKED_set_serialNumber(entry, X509_get_serialNumber(revoked->get()));
        X509_REVOKED_set_revocationDate(entry, from.get());
        check(X509_CRL_add0_revoked(list.get(), entry) == 1);
    }
    check(X509_CRL_sign(list.get(), key(), EVP_sha256()) > 0);
    const Memory bio(BIO_new(BIO_s_mem()), BIO_free);
    check(PEM_write_bio_X509_CRL(bio.get(), list.get()) == 1);
    return textOf(bio.get());
}

void Certificate::spoilSignature() {
    const ASN1_BIT_STRING* signature = nullptr;
    X509_get0_signature(&signature, nullptr, get());
    const_cast<unsigned char*>(ASN1_STRING_get0_data(signature))[signature->length - 1] ^= 1U;
}

CertificateFiles::CertificateFiles() {
    std::string pattern = std::filesystem::temp_directory_path() / "tivra-certificates-XXXXXX";
    check(::mkdtemp(pattern.data()) != nullptr);
    m_folder = pattern;
}

CertificateFiles::~CertificateFiles() {
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

std::string CertificateFiles::write(const std::string& name, const std::string& text) const {
    const std::filesystem::path path = m_folder / name;
    std::ofstream(path) << text;
    ::chmod(path.c_str(), 0600);
    return path;
}
