#include "tls/CertificateFaults.h"

namespace {

using Scene = CertificateScene;

CertificateText issuerText(const char* name) {
    CertificateText text;
    text.name = name;
    text.isIssuer = true;
    text.keyUsage = "critical,keyCertSign,cRLSign";
    return text;
}

template<class Change>
CertificateText with(CertificateText text, Change change) {
    change(text);
    return text;
}

const std::vector<CertificateFault> kFaults = {
    {"None", [](Scene&) {}, ""},
    {"NameInTheSettings", [](Scene& s) { s.settings.serverName = "hub.example.org"; }, ""},
    {"Wildcard",
     [](Scene& s) {
         s.hubText.alternativeNames = "DNS:*.example.org";
         s.settings.serverName = "hub.example.org";
     },
     ""},
    {"OwnKeyPinned",
     [](Scene& s) {
         s.issue();
         s.settings.pinnedKeys = s.root.pin() + ',' + s.hub->pin();
     },
     ""},
    {"ListWithoutTheHub",
     [](Scene& s) {
         s.settings.crlFile =
             s.files.write("crl.pem", s.root.revocations(nullptr) + s.between.revocations(nullptr));
     },
     ""},
    {"SelfSignedAndTrusted",
     [](Scene& s) {
         s.hubIssuer = nullptr;
         s.chain.clear();
         s.issue();
         s.settings.caFile = s.files.write("hub.pem", s.hub->pem());
     },
     ""},
    {"Expired", [](Scene& s) { s.hubText.validTo = -60; }, "has expired"},
    {"NotYetValid", [](Scene& s) { s.hubText.validFrom = 600; }, "not valid yet"},
    {"IssuerExpired",
     [](Scene& s) {
         s.between = Certificate(with(issuerText("between"), [](auto& t) { t.validTo = -60; }), &s.root);
     },
     "has expired"},
    {"OtherAddress", [](Scene& s) { s.hubText.alternativeNames = "IP:127.0.0.2"; }, "is not for 127.0.0.1"},
    {"OtherName", [](Scene& s) { s.settings.serverName = "other.example.org"; }, "is not for other.example"},
    {"NameInTheSubjectAlone",
     [](Scene& s) {
         s.hubText.name = "hub.example.org";
         s.hubText.alternativeNames = "";
         s.settings.serverName = "hub.example.org";
     },
     "is not for hub.example.org"},
    {"WildcardOverTwoLabels",
     [](Scene& s) {
         s.hubText.alternativeNames = "DNS:*.org";
         s.settings.serverName = "hub.example.org";
     },
     "is not for hub.example.org"},
    {"WildcardInsideALabel",
     [](Scene& s) {
         s.hubText.alternativeNames = "DNS:h*b.example.org";
         s.settings.serverName = "hub.example.org";
     },
     "is not for hub.example.org"},
    {"WildcardForAnAddress", [](Scene& s) { s.hubText.alternativeNames = "DNS:127.0.0.*,DNS:127.0.0.1"; },
     "is not for 127.0.0.1"},
    {"NameWithMoreBehindIt",
     [](Scene& s) {
         s.hubText.alternativeNames = "DNS:hub.example.org.evil.net";
         s.settings.serverName = "hub.example.org";
     },
     "is not for hub.example.org"},
    {"SelfSigned",
     [](Scene& s) {
         s.hubIssuer = nullptr;
         s.chain.clear();
     },
     "signed by itself alone"},
    {"UnknownIssuer",
     [](Scene& s) {
         s.settings.caFile = s.files.write("ca.pem", Certificate(issuerText("other"), nullptr).pem());
     },
     "the issuer of the hub's certificate is unknown"},
    {"UnknownIssuerInTheChain",
     [](Scene& s) {
         s.chain.push_back(&s.root);
         s.settings.caFile = s.files.write("ca.pem", Certificate(issuerText("other"), nullptr).pem());
     },
     "ends at an issuer that isn't trusted"},
    {"SameNameAsTheIssuer",
     [](Scene& s) {
         s.settings.caFile = s.files.write("ca.pem", Certificate(issuerText("root"), nullptr).pem());
     },
     "a signature in the hub's chain is wrong"},
    {"BrokenChain", [](Scene& s) { s.chain.clear(); }, "have the hub send the certificates between"},
    {"Revoked",
     [](Scene& s) {
         s.issue();
         s.settings.crlFile =
             s.files.write("crl.pem", s.root.revocations(nullptr) + s.between.revocations(s.hub.get()));
     },
     "has been revoked"},
    {"IssuerRevoked",
     [](Scene& s) {
         s.settings.crlFile =
             s.files.write("crl.pem", s.root.revocations(&s.between) + s.between.revocations(nullptr));
     },
     "has been revoked"},
    {"ListOfOneIssuerMissing",
     [](Scene& s) { s.settings.crlFile = s.files.write("crl.pem", s.root.revocations(nullptr)); },
     "has no revocation list"},
    {"ListExpired",
     [](Scene& s) {
         s.settings.crlFile =
             s.files.write("crl.pem", s.root.revocations(nullptr) + s.between.revocations(nullptr, -60));
     },
     "revocation list in TLS_CRL_FILE_STRING has expired"},
    {"ShortKey", [](Scene& s) { s.hubText.rsaBits = 1024; }, "too short to be safe"},
    {"WeakDigest", [](Scene& s) { s.hubText.isSha1 = true; }, "digest that is no longer safe"},
    {"ForClientsAlone", [](Scene& s) { s.hubText.extendedUsage = "clientAuth"; }, "not meant for servers"},
    {"ForCodeAlone", [](Scene& s) { s.hubText.extendedUsage = "codeSigning"; }, "not meant for servers"},
    {"IssuerIsNone",
     [](Scene& s) {
         s.between = Certificate(with(issuerText("between"),
                                      [](auto& t) {
                                          t.constraints = "critical,CA:FALSE";
                                          t.keyUsage = "";
                                      }),
                                 &s.root);
     },
     "is no issuer's"},
    {"IssuerMayNotSign",
     [](Scene& s) {
         s.between = Certificate(
             with(issuerText("between"), [](auto& t) { t.keyUsage = "critical,cRLSign"; }), &s.root);
     },
     "is no issuer's"},
    {"ChainTooDeepForItsIssuer",
     [](Scene& s) {
         s.root = Certificate(
             with(issuerText("root"), [](auto& t) { t.constraints = "critical,CA:TRUE,pathlen:0"; }),
             nullptr);
         s.between = Certificate(issuerText("between"), &s.root);
         s.settings.caFile = s.files.write("ca.pem", s.root.pem());
     },
     "may not have issuers below it"},
    {"NameTheIssuerMayNotGive",
     [](Scene& s) {
         s.between =
             Certificate(with(issuerText("between"),
                              [](auto& t) { t.nameConstraints = "critical,permitted;DNS:example.net"; }),
                         &s.root);
         s.hubText.alternativeNames = "DNS:hub.example.org";
         s.settings.serverName = "hub.example.org";
     },
     "may not issue certificates for this name"},
    {"UnknownCriticalExtension", [](Scene& s) { s.hubText.hasUnknownCritical = true; },
     "critical extension that is unknown"},
    {"WrongSignature",
     [](Scene& s) {
         s.issue();
         s.hub->spoilSignature();
     },
     "signature in the hub's chain is wrong"},
    {"OtherKeyPinned", [](Scene& s) { s.settings.pinnedKeys = s.root.pin(); }, "doesn't list"},
    {"PinIsNone", [](Scene& s) { s.settings.pinnedKeys = "sha256/abc"; }, "TLS_PINNED_KEY_STRING can't be"},
    {"NoIssuersFile", [](Scene& s) { s.settings.caFile = "/nonexistent"; }, "TLS_CA_FILE_STRING /nonex"},
    {"NoListFile", [](Scene& s) { s.settings.crlFile = "/nonexistent"; }, "TLS_CRL_FILE_STRING /nonex"},
    {"NoCertificateFile", [](Scene& s) { s.settings.certificateFile = "/nonexistent"; },
     "TLS_CERTIFICATE_FILE_STRING /nonex"},
    {"KeyOfAnother",
     [](Scene& s) {
         s.settings.certificateFile = s.files.write("client.pem", s.root.pem());
         s.settings.keyFile = s.files.write("client.key", s.between.keyPem());
     },
     "no key for this client's certificate"},
    {"NoSuchVersion", [](Scene& s) { s.settings.minVersion = "1.1"; }, "no version 1.1 of TLS to demand"},
};

} // namespace

CertificateScene::CertificateScene()
    : root(issuerText("root"), nullptr), between(issuerText("between"), &root) {
    settings.isOn = true;
    settings.caFile = files.write("ca.pem", root.pem());
}

void CertificateScene::issue() {
    if (hub == nullptr)
        hub = std::make_unique<Certificate>(hubText, hubIssuer);
}

void PrintTo(const CertificateFault& fault, std::ostream* out) {
    *out << fault.name;
}

const std::vector<CertificateFault>& certificateFaults() {
    return kFaults;
}
