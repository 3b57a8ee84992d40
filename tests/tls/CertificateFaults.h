#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tls/Certificates.h"
#include "tls/TlsSettings.h"

/// What a hub at 127.0.0.1 shows and what a client demands; as it stands, all is well.
struct CertificateScene {
    CertificateFiles files;
    Certificate root;
    Certificate between;
    CertificateText hubText{};
    const Certificate* hubIssuer = &between;
    std::vector<const Certificate*> chain{&between}; ///< what the hub sends behind its own certificate
    tivra_internal::TlsSettings settings{};
    std::unique_ptr<Certificate> hub{};

    CertificateScene();
    CertificateScene(const CertificateScene&) = delete;
    CertificateScene& operator=(const CertificateScene&) = delete;

    /// Makes the hub's certificate, once.
    void issue();
};

/// Something wrong with a certificate, with what the hub sends or with what the client demands.
struct CertificateFault {
    const char* name;
    void (*prepare)(CertificateScene&);
    const char* text; ///< of the error; empty: the connection comes about
};

void PrintTo(const CertificateFault& fault, std::ostream* out);

[[nodiscard]] const std::vector<CertificateFault>& certificateFaults();
