#pragma once

#include <string>

#include "tls/OpenSslHandles.h"
#include "tls/PinnedKeys.h"
#include "tls/TlsStream.h"

namespace tivra_internal {

/// A TlsStream by OpenSSL. @thread hub
class OpenSslStream final : public TlsStream {
public:
    /// @param expectedName  that the certificate has to be for, as the failure names it
    OpenSslStream(SslHandle ssl, std::string expectedName, const PinnedKeys& pins);
    ~OpenSslStream() override = default;

    [[nodiscard]] Step handshake() override;
    [[nodiscard]] const std::string& fault() const override { return m_fault; }
    [[nodiscard]] std::string description() const override;
    void end() override;

    [[nodiscard]] ssize_t read(void* into, std::size_t length) override;
    [[nodiscard]] ssize_t write(const void* bytes, std::size_t length) override;
    [[nodiscard]] bool hasUnread() const override { return m_hasUnread; }
    [[nodiscard]] bool isWriting() const override { return m_isWriting; }
    [[nodiscard]] bool readAwaitsRoom() const override { return m_readAwaitsRoom; }
    [[nodiscard]] bool hasEnded() const override { return m_state == State::Ended; }

private:
    enum class State { Greeting, Open, Ended };

    [[nodiscard]] Step fail(std::string fault);
    [[nodiscard]] Step checkKey();
    [[nodiscard]] ssize_t closeReading(int reason, int systemError);
    [[nodiscard]] ssize_t endFlood();
    [[nodiscard]] ssize_t endOfReading();
    static void noteMessage(int isSent, int version, int type, const void* bytes, std::size_t length,
                            SSL* ssl, void* stream);

    SslHandle m_ssl;
    const std::string m_expectedName;
    const PinnedKeys& m_pins;
    State m_state = State::Greeting;
    std::string m_fault;
    int m_readError = 0; ///< what reads fail with from now on; 0 after an end in order
    int m_messagesWithoutData = 0;
    bool m_hasUnread = false;
    bool m_isWriting = false;
    bool m_readAwaitsRoom = false;
};

} // namespace tivra_internal
