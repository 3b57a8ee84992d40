// Arbitrary files where certificates, revocation lists and keys are named: they are used, or refused with a
// text.
#include "FuzzCheck.h"
#include "tls/PinnedKeys.h"
#include "tls/TlsClient.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace {

/// Values of the first byte of an input.
enum Mode : unsigned { ISSUERS, REVOCATIONS, IDENTITY, PINS, MODES };

/// An issuer, so that the system's aren't read for each input.
constexpr const char* kIssuer = R"(-----BEGIN CERTIFICATE-----
MIIBcjCCARmgAwIBAgIUSr4cyrsMT/Bh+BfIJK4I6VZwiGQwCgYIKoZIzj0EAwIw
DzENMAsGA1UEAwwEcm9vdDAeFw0yNjExMjcyMDQ1MzlaFw0zNjExMjQyMDQ1Mzla
MA8xDTALBgNVBAMMBHJvb3QwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAAR/Kuvx
akQqqlghNe61sHSHIwICEaCqd4H8JiRXEY0vFJSpV8Z5uZQOZhzzrpVu7Uzj376f
gMopZ8+s6jRJXD7bo1MwUTAdBgNVHQ4EFgQUonXhHWCZ5OSreGUPpSPxEY6MfsEw
HwYDVR0jBBgwFoAUonXhHWCZ5OSreGUPpSPxEY6MfsEwDwYDVR0TAQH/BAUwAwEB
/zAKBggqhkjOPQQDAgNHADBEAiAagcHI9qMMu6sZ8uOFZHIHZVqKzILzCKNZuSUw
w5jvtwIgGsyfXkwC/TdYjaZuCk0JT2N2vNhdgLbHLNvHidJ2Xsk=
-----END CERTIFICATE-----
)";

/// The path of a file without a place in the file system. A key that others can read is refused unread.
std::string memoryFile() {
    const int file = memfd_create("certificate", MFD_CLOEXEC);
    ::fchmod(file, S_IRUSR | S_IWUSR);
    return "/proc/self/fd/" + std::to_string(file);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path = memoryFile();
    static const std::string issuerPath = [] {
        const std::string own = memoryFile();
        std::ofstream(own, std::ios::binary) << kIssuer;
        return own;
    }();
    static const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    fuzz::Input input(data, size);
    const unsigned mode = input.byte() % MODES;
    tivra_internal::TlsSettings settings;
    settings.isOn = true;
    settings.caFile = issuerPath;
    if (mode == PINS) {
        tivra_internal::PinnedKeys pins;
        settings.pinnedKeys = std::string(input.rest());
        static_cast<void>(tivra_internal::PinnedKeys::read(settings.pinnedKeys, pins));
    } else {
        std::ofstream(path, std::ios::binary) << input.rest();
    }
    if (mode == ISSUERS)
        settings.caFile = path;
    else if (mode == REVOCATIONS)
        settings.crlFile = path;
    else if (mode == IDENTITY)
        settings.certificateFile = path;
    std::string fault;
    const auto client = tivra_internal::TlsClient::make(settings);
    const auto stream = client->open(socket, "127.0.0.1", fault);
    if ((stream == nullptr) == fault.empty())
        fuzz::expectEqual("what a file comes to", fault, stream == nullptr ? "a text" : "no text");
    return 0;
}
