#pragma once

#include <string>

namespace tivra_bench {

/// An issuer and a certificate of a hub at 127.0.0.1, made by the program openssl, in a folder that goes with
/// the object.
class TlsPapers {
public:
    /// Throws std::runtime_error where there is no such program.
    TlsPapers();
    ~TlsPapers();
    TlsPapers(const TlsPapers&) = delete;
    TlsPapers& operator=(const TlsPapers&) = delete;

    [[nodiscard]] const std::string& folder() const { return m_folder; }
    [[nodiscard]] std::string issuer() const { return m_folder + "/issuer.pem"; }
    /// Certificate and key in one file.
    [[nodiscard]] std::string hub() const { return m_folder + "/hub.pem"; }

private:
    std::string m_folder;
};

} // namespace tivra_bench
