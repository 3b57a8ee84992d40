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

void set(rd_kafka_conf_t* conf, const std::string& name, const std::string& value) {
    char error[kErrorBytes] = {};
    if (rd_kafka_conf_set(conf, name.c_str(), value.c_str(), error, sizeof error) != RD_KAFKA_CONF_OK)
        throw BusError(fmt::format("the property {} of the engine's client: {}", name, error));
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
    default:
        return false;
    }
}

KafkaClient::KafkaClient(Role role, const KafkaAddress& address, Setup setup)
    : m_servers(fmt::format("{}", fmt::join(address.servers, ",")))
    , m_patience(static_cast<int>(address.patience.count()))
    , m_setup(std::move(setup)) {
    KafkaConf conf(rd_kafka_conf_new());
    // What the bridge needs comes last, so that nothing takes its place.
    set(conf.get(), "reconnect.backoff.ms", "100"); // the client library adds jitter and doubles it
    set(conf.get(), "reconnect.backoff.max.ms", "5000");
    set(conf.get(), "topic.metadata.refresh.interval.ms", "30000");
    set(conf.get(), "socket.nagle.disable", "true"); // each batch is waited for
    for (const auto& [name, value] : securityOf(address))
        set(conf.get(), name, value);
    set(conf.get(), "bootstrap.servers", m_servers);
    set(conf.get(), "client.id", address.name);
    for (const auto& [name, value] : m_setup.properties)
        set(conf.get(), name, value);
    rd_kafka_conf_set_opaque(conf.get(), this);
    rd_kafka_conf_set_error_cb(conf.get(), onError);
    rd_kafka_conf_set_log_cb(conf.get(), onLog);
    if (m_setup.onDelivery != nullptr)
        rd_kafka_conf_set_dr_msg_cb(conf.get(), m_setup.onDelivery);
    if (m_setup.onRebalance)
        rd_kafka_conf_set_rebalance_cb(conf.get(), onRebalance);
    if (m_setup.group != nullptr)
        m_setup.group->watch(conf.get());
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

void KafkaClient::note(const std::string& text) const {
    const tp::MutexLock lock(m_mutex);
    m_lastError = text;
}

void KafkaClient::onError(rd_kafka_t*, int error, const char* reason, void* self) {
    auto& own = *static_cast<KafkaClient*>(self);
    if (error == RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN)
        own.m_isConnected.store(false, std::memory_order_relaxed);
    else
        own.note(reason); // what stands behind the one above
}

void KafkaClient::onLog(const rd_kafka_t* handle, int level, const char*, const char* text) {
    // Before the handle is complete it has nothing to call back with.
    if (level <= kWarning && rd_kafka_opaque(handle) != nullptr)
        static_cast<const KafkaClient*>(rd_kafka_opaque(handle))->note(text);
}

void KafkaClient::onRebalance(rd_kafka_t*, rd_kafka_resp_err_t event,
                              rd_kafka_topic_partition_list_t* partitions, void* self) {
    static_cast<const KafkaClient*>(self)->m_setup.onRebalance(event, partitions);
}

void KafkaClient::check(rd_kafka_resp_err_t error, const std::string& attempt) const {
    if (error == RD_KAFKA_RESP_ERR_NO_ERROR)
        return;
    const char* advice = "";
    if (error == RD_KAFKA_RESP_ERR__TRANSPORT || error == RD_KAFKA_RESP_ERR__TIMED_OUT ||
        error == RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN)
        advice = ": see that it runs and that address, credentials and certificates are right";
    else if (error == RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED ||
             error == RD_KAFKA_RESP_ERR_GROUP_AUTHORIZATION_FAILED ||
             error == RD_KAFKA_RESP_ERR_CLUSTER_AUTHORIZATION_FAILED)
        advice = ": this user needs the rights that docs/bridge.md lists";
    std::string said;
    {
        const tp::MutexLock lock(m_mutex);
        said = std::exchange(m_lastError, {});
    }
    const std::string text =
        fmt::format("the engine at {}: {}: {}{}{}{}", m_servers, attempt, rd_kafka_err2str(error),
                    said.empty() ? "" : ", lately: ", said, advice);
    if (isPassing(error))
        throw UnreadyError(text);
    throw BusError(text);
}

} // namespace tivra_bus
