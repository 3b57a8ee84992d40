#include "TlsPapers.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <stdlib.h>

namespace tivra_bench {

TlsPapers::TlsPapers() {
    char name[] = "/tmp/tivra-bench.XXXXXX";
    if (mkdtemp(name) == nullptr)
        throw std::runtime_error("there is no folder for certificates");
    m_folder = name;
    const std::string key = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes ";
    const std::string line =
        "cd " + m_folder + " && exec 2>/dev/null && " + key +
        "-subj /CN=issuer -addext keyUsage=critical,keyCertSign -keyout issuer.key -out issuer.pem && " +
        key +
        "-subj /CN=hub -addext subjectAltName=IP:127.0.0.1,IP:127.0.0.2 -addext "
        "basicConstraints=critical,CA:FALSE "
        "-CA issuer.pem -CAkey issuer.key -keyout hub.key -out hub.crt && cat hub.crt hub.key >hub.pem";
    if (std::system(line.c_str()) != 0) {
        std::filesystem::remove_all(m_folder);
        throw std::runtime_error("the program openssl makes no certificates");
    }
}

TlsPapers::~TlsPapers() {
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

} // namespace tivra_bench
