#include "kafka/KafkaClient.h"

#include "bus/BusError.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>

namespace tivra_bus {

namespace {

constexpr std::size_t kErrorBytes = 512;
/// Of syslog: warnings and what is worse.
constexpr int kWarning = 4;
/// Longer than the client library keeps an error to itself that it has told before.
constexpr std::chrono::seconds kOfLate{60};

void set(rd_kafka_conf_t* conf, const std::string& name, const std::string& value) {
    char error[kErrorBytes] = {};
    if (rd_kafka_conf_set(conf, name.c_str(), value.c_str(), error, sizeof error) != RD_KAFKA_CONF_OK)
        throw BusError(fmt::format("the property {} of the engine's client: {}", name, error));
}

/// Whether a server, or this side of the connection, has refused the other: trying again is no use.
bool isRefusal(rd_kafka_resp_err_t error) {
    return error == RD_KAFKA_RESP_ERR__AUTHENTICATION || error == RD_KAFKA_RESP_ERR__SSL;
}

/// What is wrong with a server's certificate, by the number that OpenSSL has for it.
std::string certificateError(int error) {
    switch (error) {
    case 9:
        return "isn't valid yet";
    case 10:
        return "has expired";
    case 18:
    case 19:
    case 20:
    case 21:
        return "isn't vouched for by any that is trusted";
    case 62:
    case 64:
        return "is for another name";
    default:
        return fmt::format("can't be trusted (X.509 error {})", error);
    }
}

} // namespace

bool isPassing(rd_kafka_resp_err_t error) {
    switch (error) {
    case RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN:
    case RD_KAFKA_RESP_ERR__TIMED_OUT:
    case RD_KAFKA_RESP_ERR__TRANSPORT:
    case RD_KAFKA_RESP_ERR_BROKER_NOT_AVAILABLE:
    case RD_KAFKA_RESP_ERR_COORDINATOR_LOAD_IN_PROGRESS:
    case RD_KAFKA_RESP_ERR_COORDINATOR_NOT_AVAILABLE:
    case RD_KAFKA_RESP_ERR_LEADER_NOT_AVAILABLE:
    case RD_KAFKA_RESP_ERR_NETWORK_EXCEPTION:
    case RD_KAFKA_RESP_ERR_NOT_CONTROLLER:
    case RD_KAFKA_RESP_ERR_NOT_COORDINATOR:
    case RD_KAFKA_RESP_ERR_NOT_LEADER_FOR_PARTITION:
    case RD_KAFKA_RESP_ERR_REQUEST_TIMED_OUT:
        return true;
    // Of a topic that another broker has just created.
    case RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART:
    case RD_KAFKA_RESP_ERR__UNKNOWN_PARTITION:
    case RD_KAFKA_RESP_ERR__UNKNOWN_TOPIC:
        return true;
    default:
        return false;
    }
}

const char* adviceFor(rd_kafka_resp_err_t error) {
    switch (error) {
    case RD_KAFKA_RESP_ERR__AUTHENTICATION:
        return ": see that user, password and mechanism in the credentials file are right";
    case RD_KAFKA_RESP_ERR__SSL:
        return ": see that this port speaks TLS, that the certificates given vouch for the server's, and "
               "that "
               "it is dialled by the name in its certificate";
    case RD_KAFKA_RESP_ERR__TRANSPORT:
    case RD_KAFKA_RESP_ERR__TIMED_OUT:
    case RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN:
        return ": see that it runs, and that address, credentials and certificates are right";
    case RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED:
    case RD_KAFKA_RESP_ERR_GROUP_AUTHORIZATION_FAILED:
    case RD_KAFKA_RESP_ERR_CLUSTER_AUTHORIZATION_FAILED:
        return ": this user needs the rights that docs/bridge.md lists";
    default:
        return "";
    }
}

KafkaClient::KafkaClient(Role role, const KafkaAddress& address, Setup setup)
    : m_servers(fmt::format("{}", fmt::join(address.servers, ",")))
    , m_patience(static_cast<int>(address.patience.count()))
    , m_setup(std::move(setup)) {
    KafkaConf conf(rd_kafka_conf_new());
    // What the bridge needs comes last, so that nothing takes its place.
    set(conf.get(), "reconnect.backoff.ms", "100"); // the client library adds jitter and doubles it
    // Bridges have to be back together, or leases are over meanwhile.
    set(conf.get(), "reconnect.backoff.max.ms", "1000");
    set(conf.get(), "topic.metadata.refresh.interval.ms", "30000");
    set(conf.get(), "socket.nagle.disable", "true"); // each batch is waited for
    set(conf.get(), "socket.timeout.ms", "10000");   // or a server that is cut off is waited for a minute
    for (const auto& [name, value] : securityOf(address))
        set(conf.get(), name, value);
    set(conf.get(), "bootstrap.servers", m_servers);
    set(conf.get(), "client.id", address.name);
    for (const auto& [name, value] : m_setup.properties)
        set(conf.get(), name, value);
    rd_kafka_conf_set_opaque(conf.get(), this);
    rd_kafka_conf_set_error_cb(conf.get(), onError);
    rd_kafka_conf_set_log_cb(conf.get(), onLog);
    rd_kafka_conf_set_ssl_cert_verify_cb(conf.get(), onCertificate);
    if (m_setup.onDelivery != nullptr)
        rd_kafka_conf_set_dr_msg_cb(conf.get(), m_setup.onDelivery);
    char error[kErrorBytes] = {};
    m_handle = rd_kafka_new(role == Role::Producer ? RD_KAFKA_PRODUCER : RD_KAFKA_CONSUMER, conf.get(), error,
                            sizeof error);
    if (m_handle == nullptr)
        throw BusError(fmt::format("the engine at {}: {}", m_servers, error));
    (void)conf.release(); // it belongs to the handle now
    if (role == Role::Consumer)
        rd_kafka_poll_set_consumer(m_handle);
}

KafkaClient::~KafkaClient() {
    rd_kafka_destroy(m_handle);
}

void KafkaClient::note(const std::string& text, rd_kafka_resp_err_t error) const {
    const tp::MutexLock lock(m_mutex);
    const Clock::time_point now = Clock::now();
    // What says more stays: a refusal is logged besides, and one of a certificate ends the handshake.
    const bool saysMore = isRefusal(error) && error != m_heard.error;
    if (!saysMore && isRefusal(m_heard.error) && now - m_heard.time < kOfLate)
        return;
    m_heard = {text, error, now};
}

KafkaClient::Heard KafkaClient::heard() const {
    const tp::MutexLock lock(m_mutex);
    return Clock::now() - m_heard.time < kOfLate ? m_heard : Heard{};
}

void KafkaClient::onError(rd_kafka_t*, int error, const char* reason, void* self) {
    auto& own = *static_cast<KafkaClient*>(self);
    if (error == RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN)
        own.m_isConnected.store(false, std::memory_order_relaxed);
    else // what stands behind the one above
        own.note(reason, static_cast<rd_kafka_resp_err_t>(error));
}

void KafkaClient::onLog(const rd_kafka_t* handle, int level, const char*, const char* text) {
    // Before the handle is complete it has nothing to call back with.
    if (level <= kWarning && rd_kafka_opaque(handle) != nullptr)
        static_cast<const KafkaClient*>(rd_kafka_opaque(handle))->note(text, RD_KAFKA_RESP_ERR_NO_ERROR);
}

int KafkaClient::onCertificate(rd_kafka_t*, const char* server, std::int32_t, int* error, int, const char*,
                               std::size_t, char* text, std::size_t textSize, void* self) {
    if (*error == 0)
        return 1;
    const std::string why = certificateError(*error);
    fmt::format_to_n(text, textSize - 1, "{}", why).out[0] = '\0';
    static_cast<const KafkaClient*>(self)->note(fmt::format("the certificate of {} {}", server, why),
                                                RD_KAFKA_RESP_ERR__SSL);
    return 0;
}

std::int64_t KafkaClient::offsetAt(const std::string& topic, unsigned partition, std::int64_t time,
                                   const std::string& attempt) const {
    const KafkaPartitions partitions(rd_kafka_topic_partition_list_new(1));
    rd_kafka_topic_partition_t* const entry =
        rd_kafka_topic_partition_list_add(partitions.get(), topic.c_str(), static_cast<int>(partition));
    entry->offset = time;
    check(rd_kafka_offsets_for_times(m_handle, partitions.get(), m_patience), attempt);
    check(entry->err, attempt);
    return entry->offset;
}

void KafkaClient::check(rd_kafka_resp_err_t error, const std::string& attempt) const {
    if (error == RD_KAFKA_RESP_ERR_NO_ERROR)
        return;
    const Heard said = isPassing(error) ? heard() : Heard{};
    // What a refusal leads to says nothing more.
    if (isRefusal(said.error))
        throw BusError(fmt::format("the engine at {}: {}{}", m_servers, said.text, adviceFor(said.error)));
    const std::string text =
        fmt::format("the engine at {}: {}: {}{}{}{}", m_servers, attempt, rd_kafka_err2str(error),
                    said.text.empty() ? "" : ", lately: ", said.text, adviceFor(error));
    if (isPassing(error))
        throw UnreadyError(text);
    throw BusError(text);
}

} // namespace tivra_bus
