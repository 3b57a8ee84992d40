// Arbitrary files where certificates, revocation lists and keys are named: they are used, or refused with a
// text.
#include "FuzzCheck.h"
#include "tls/PinnedKeys.h"
#include "tls/TlsClient.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace {

/// Values of the first byte of an input.
enum Mode : unsigned { ISSUERS, REVOCATIONS, IDENTITY, PINS, MODES };

/// The path of a file without a place in the file system.
std::string memoryFile() {
    return "/proc/self/fd/" + std::to_string(memfd_create("certificate", MFD_CLOEXEC));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path = memoryFile();
    static const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    fuzz::Input input(data, size);
    const unsigned mode = input.byte() % MODES;
    tivra_internal::TlsSettings settings;
    settings.isOn = true;
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
