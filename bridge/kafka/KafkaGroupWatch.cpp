#include "kafka/KafkaGroupWatch.h"

namespace tivra_bus {

namespace {

constexpr const char* kName = "tivra-group";
// The protocol's numbers of the requests of members.
constexpr std::int16_t kJoin = 11;
constexpr std::int16_t kHeartbeat = 12;
constexpr std::int16_t kSync = 14;

} // namespace

void KafkaGroupWatch::watch(rd_kafka_conf_t* conf) {
    rd_kafka_conf_interceptor_add_on_new(conf, kName, onNew, this);
}

rd_kafka_resp_err_t KafkaGroupWatch::onNew(rd_kafka_t* handle, const rd_kafka_conf_t*, void* self, char*,
                                           std::size_t) {
    const rd_kafka_resp_err_t error = rd_kafka_interceptor_add_on_request_sent(handle, kName, onSent, self);
    return error != RD_KAFKA_RESP_ERR_NO_ERROR
               ? error
               : rd_kafka_interceptor_add_on_response_received(handle, kName, onAnswer, self);
}

rd_kafka_resp_err_t KafkaGroupWatch::onSent(rd_kafka_t*, int, const char*, std::int32_t, std::int16_t request,
                                            std::int16_t, std::int32_t, std::size_t, void* self) {
    if (request == kJoin)
        static_cast<KafkaGroupWatch*>(self)->m_isForming = true;
    return RD_KAFKA_RESP_ERR_NO_ERROR;
}

rd_kafka_resp_err_t KafkaGroupWatch::onAnswer(rd_kafka_t*, int, const char*, std::int32_t,
                                              std::int16_t request, std::int16_t, std::int32_t, std::size_t,
                                              std::int64_t, rd_kafka_resp_err_t error, void* self) {
    auto& own = *static_cast<KafkaGroupWatch*>(self);
    if (error != RD_KAFKA_RESP_ERR_NO_ERROR)
        return RD_KAFKA_RESP_ERR_NO_ERROR;
    if (request == kJoin || request == kHeartbeat || request == kSync)
        own.m_heard = Clock::now();
    if (request == kSync)
        own.m_isForming = false;
    return RD_KAFKA_RESP_ERR_NO_ERROR;
}

} // namespace tivra_bus
