#include "nats/NatsConnection.h"

#include "bus/BusError.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>

namespace tivra_bus {

namespace {

constexpr int kReconnectBytes = 8 << 20;
constexpr int kPendingMessages = 1 << 20;
/// A server that takes nothing for so long is left for another.
constexpr std::int64_t kWriteMilliseconds = 1000;

void require(natsStatus status, const std::string& attempt) {
    if (status != NATS_OK)
        throw BusError(fmt::format("{}: {}", attempt, natsStatus_GetText(status)));
}

/// Whoever names certificates wants no plain connection.
void setTls(natsOptions* options, const NatsAddress& address) {
    if (!address.isSecure && address.caFile.empty() && address.certificateFile.empty())
        return;
    require(natsOptions_SetSecure(options, true), "TLS to the engine");
    if (!address.caFile.empty())
        require(natsOptions_LoadCATrustedCertificates(options, address.caFile.c_str()),
                "the file of trusted certificates " + address.caFile);
    if (!address.certificateFile.empty())
        require(natsOptions_LoadCertificatesChain(options, address.certificateFile.c_str(),
                                                  address.keyFile.c_str()),
                "the certificate " + address.certificateFile + " with the key " + address.keyFile);
}

NatsOptions optionsOf(const NatsAddress& address) {
    natsOptions* raw = nullptr;
    require(natsOptions_Create(&raw), "options of the engine");
    NatsOptions options(raw);
    std::vector<const char*> servers;
    for (const std::string& server : address.servers)
        servers.push_back(server.c_str());
    require(natsOptions_SetServers(raw, servers.data(), static_cast<int>(servers.size())),
            fmt::format("the engine's address {}", fmt::join(address.servers, ", ")));
    natsOptions_SetName(raw, address.name.c_str());
    natsOptions_SetTimeout(raw, address.answerMilliseconds);
    // For ever: the client adds jitter to each pause.
    natsOptions_SetMaxReconnect(raw, -1);
    natsOptions_SetReconnectWait(raw, 250);
    natsOptions_SetReconnectJitter(raw, 250, 250);
    natsOptions_SetReconnectBufSize(raw, kReconnectBytes);
    natsOptions_SetMaxPendingMsgs(raw, kPendingMessages);
    natsOptions_SetPingInterval(raw, 2000);
    natsOptions_SetWriteDeadline(raw, kWriteMilliseconds);
    if (!address.credentialsFile.empty())
        require(natsOptions_SetUserCredentialsFromFiles(raw, address.credentialsFile.c_str(), nullptr),
                "the credentials file " + address.credentialsFile);
    setTls(raw, address);
    return options;
}

} // namespace

NatsConnection::NatsConnection(const NatsAddress& address) {
    const NatsOptions options = optionsOf(address);
    natsOptions_SetErrorHandler(options.get(), onError, this);
    natsOptions_SetDisconnectedCB(options.get(), onDisconnected, this);
    natsOptions_SetReconnectedCB(options.get(), onReconnected, this);
    natsOptions_SetClosedCB(options.get(), onClosed, this);
    const std::string attempt = fmt::format("the engine at {}", fmt::join(address.servers, ", "));
    if (const natsStatus status = natsConnection_Connect(&m_connection, options.get()); status != NATS_OK)
        throw BusError(fmt::format("{}: {}: see that it runs and that address, credentials and certificates "
                                   "are right",
                                   attempt, natsStatus_GetText(status)));
    jsOptions settings;
    jsOptions_Init(&settings);
    settings.Wait = address.answerMilliseconds;
    jsCtx* context = nullptr;
    const natsStatus status = natsConnection_JetStream(&context, m_connection, &settings);
    m_context.reset(context);
    if (status != NATS_OK) {
        close();
        require(status, attempt);
    }
}

NatsConnection::~NatsConnection() {
    close();
}

void NatsConnection::close() {
    m_context.reset();
    natsConnection_Close(m_connection);
    {
        // It comes after all others, on the thread that they come on.
        const tp::MutexLock lock(m_mutex);
        while (!m_isClosed)
            m_changed.wait(m_mutex);
    }
    natsConnection_Destroy(m_connection);
}

void NatsConnection::onDisconnected(natsConnection*, void* self) {
    auto& own = *static_cast<NatsConnection*>(self);
    own.m_isConnected = false;
    own.m_losses.fetch_add(1, std::memory_order_relaxed);
}

void NatsConnection::onReconnected(natsConnection*, void* self) {
    static_cast<NatsConnection*>(self)->m_isConnected = true;
}

void NatsConnection::onClosed(natsConnection*, void* self) {
    auto& own = *static_cast<NatsConnection*>(self);
    own.m_isConnected = false;
    const tp::MutexLock lock(own.m_mutex);
    own.m_isClosed = true;
    own.m_changed.notifyAll();
}

void NatsConnection::check(natsStatus status, const std::string& attempt, const char* advice) const {
    if (status == NATS_OK)
        return;
    if (*advice == '\0' && (status == NATS_TIMEOUT || status == NATS_NO_RESPONDERS))
        advice =
            ": see that the server has JetStream on, that its cluster has a leader and that this user may "
            "use $JS.API.>";
    std::string said;
    {
        const tp::MutexLock lock(m_mutex);
        said = std::exchange(m_lastError, {});
    }
    natsStatus last{};
    if (const char* text = nats_GetLastError(&last); said.empty() && text != nullptr && last == status)
        said = text;
    throw UnreadyError(fmt::format("{}: {}{}{}{}", attempt, natsStatus_GetText(status),
                                   said.empty() ? "" : ", ", said, advice));
}

void NatsConnection::onError(natsConnection* connection, natsSubscription*, natsStatus status, void* self) {
    const char* text = nullptr;
    natsConnection_GetLastError(connection, &text);
    auto& own = *static_cast<NatsConnection*>(self);
    const tp::MutexLock lock(own.m_mutex);
    own.m_lastError = text != nullptr && *text != '\0' ? text : natsStatus_GetText(status);
}

} // namespace tivra_bus
