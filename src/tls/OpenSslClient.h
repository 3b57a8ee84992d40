#pragma once

#include <sys/types.h>

#include <array>
#include <ctime>
#include <string>

#include "tls/OpenSslHandles.h"
#include "tls/PinnedKeys.h"
#include "tls/TlsClient.h"

namespace tivra_internal {

/// A TlsClient by OpenSSL. @thread hub
class OpenSslClient final : public TlsClient {
public:
    explicit OpenSslClient(TlsSettings settings);
    ~OpenSslClient() override = default;

    [[nodiscard]] std::unique_ptr<TlsStream> open(int fd, const std::string& address,
                                                  std::string& fault) override;

private:
    /// What changes with a file's contents; all zero for a file that isn't there.
    struct FileStamp {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        timespec changed{};

        [[nodiscard]] static FileStamp of(const std::string& path);
        [[nodiscard]] bool isSameAs(const FileStamp& other) const;
    };
    using FileStamps = std::array<FileStamp, 4>;

    [[nodiscard]] FileStamps stampFiles() const;
    [[nodiscard]] bool prepare(std::string& fault);
    [[nodiscard]] bool takeVersion(SSL_CTX* context, std::string& fault) const;
    [[nodiscard]] bool takeIssuers(SSL_CTX* context, std::string& fault) const;
    [[nodiscard]] bool takeRevocations(SSL_CTX* context, std::string& fault) const;
    [[nodiscard]] bool takeIdentity(SSL_CTX* context, std::string& fault) const;
    void offerSession(SSL* ssl, const std::string& expectedName);
    static void noteProgress(const SSL* ssl, int where, int result);
    static int noteSession(SSL* ssl, SSL_SESSION* session);

    const TlsSettings m_settings;
    PinnedKeys m_pins;
    SslContextHandle m_context;
    FileStamps m_stamps{};      ///< of the files that the context has been made from
    double m_preparedAt = 0.0;  ///< by the monotonic clock
    SslSessionHandle m_session; ///< for the next connection
    std::string m_expectedName; ///< of the present connection
    std::string m_sessionName;  ///< of the one that the session comes from
};

} // namespace tivra_internal
