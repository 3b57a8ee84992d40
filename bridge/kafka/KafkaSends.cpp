#include "kafka/KafkaSends.h"

#include "bus/BusError.h"
#include "bus/startThread.h"
#include "kafka/KafkaNames.h"

#include <utility>

namespace tivra_bus {

namespace {

constexpr int kPollMilliseconds = 20;
constexpr int kProbeMilliseconds = 500;
constexpr const char* kMostWaiting = "200000";
constexpr const char* kMostWaitingKilobytes = "262144";
/// As much as the broker's default, 1 MiB and what a batch's own header takes.
constexpr const char* kMostSentBytes = "1048588";

SendResult::Outcome outcomeOf(rd_kafka_resp_err_t error) {
    return error == RD_KAFKA_RESP_ERR_MSG_SIZE_TOO_LARGE ? SendResult::Outcome::TooBig
                                                         : SendResult::Outcome::Failed;
}

} // namespace

KafkaSends::KafkaSends(const KafkaAddress& address, std::string writer, std::chrono::milliseconds sendWithin)
    : m_address(address), m_writer(std::move(writer)), m_sendWithin(sendWithin), m_client(makeClient()) {
    m_poller = startThread("tivra-bus-sends", [this] { poll(); });
}

KafkaSends::~KafkaSends() {
    m_isEnding.store(true);
    m_poller.join();
    m_retired.push_back(client());
    for (const std::shared_ptr<KafkaClient>& each : m_retired) {
        rd_kafka_purge(each->get(), RD_KAFKA_PURGE_F_QUEUE | RD_KAFKA_PURGE_F_INFLIGHT);
        rd_kafka_flush(each->get(), kProbeMilliseconds);
    }
    callEnded();
}

std::shared_ptr<KafkaClient> KafkaSends::makeClient() const {
    return std::make_shared<KafkaClient>(
        KafkaClient::Role::Producer, m_address,
        KafkaClient::Setup{{{"enable.idempotence", "true"},
                            {"acks", "all"},
                            {"message.timeout.ms", std::to_string(m_sendWithin.count())},
                            {"message.max.bytes", kMostSentBytes},
                            {"queue.buffering.max.messages", kMostWaiting},
                            {"queue.buffering.max.kbytes", kMostWaitingKilobytes},
                            {"linger.ms", "0"}},
                           onDelivery});
}

std::shared_ptr<KafkaClient> KafkaSends::client() const {
    const tp::MutexLock lock(m_mutex);
    return m_client;
}

void KafkaSends::send(const KafkaSend& send, Completion done) {
    const std::shared_ptr<KafkaClient> to = client();
    auto flight = std::make_unique<Flight>(Flight{std::move(done)});
    // The client library only reads what it is given as void*, and copies it.
    const auto bytes = [](std::string_view text) { return const_cast<char*>(text.data()); };
    rd_kafka_vu_t parts[7] = {};
    parts[0].vtype = RD_KAFKA_VTYPE_TOPIC;
    parts[0].u.cstr = send.topic;
    parts[1].vtype = RD_KAFKA_VTYPE_PARTITION;
    parts[1].u.i32 = static_cast<std::int32_t>(send.partition);
    parts[2].vtype = RD_KAFKA_VTYPE_KEY;
    parts[2].u.mem = {bytes(send.key), send.key.size()};
    parts[3].vtype = RD_KAFKA_VTYPE_VALUE;
    parts[3].u.mem = {bytes(send.bytes), send.bytes.size()};
    // Headers of our own: the client library frees those that it makes itself twice when it refuses a
    // message.
    KafkaHeaders headers(rd_kafka_headers_new(2));
    const auto add = [&headers](const char* name, std::string_view value) {
        rd_kafka_header_add(headers.get(), name, -1, value.data(), static_cast<ssize_t>(value.size()));
    };
    add(kWriterHeader, m_writer);
    if (!send.replaces.empty())
        add(kReplacesHeader, send.replaces);
    parts[4].vtype = RD_KAFKA_VTYPE_HEADERS;
    parts[4].u.headers = headers.get();
    parts[5].vtype = RD_KAFKA_VTYPE_MSGFLAGS;
    parts[5].u.i = RD_KAFKA_MSG_F_COPY;
    parts[6].vtype = RD_KAFKA_VTYPE_OPAQUE;
    parts[6].u.ptr = flight.get();
    rd_kafka_error_t* error = rd_kafka_produceva(to->get(), parts, std::size(parts));
    if (error == nullptr) {
        (void)headers.release(); // the message has them
        (void)flight.release();  // its delivery report takes it again
        return;
    }
    const SendResult result{outcomeOf(rd_kafka_error_code(error)), 0, 0, rd_kafka_error_string(error)};
    rd_kafka_error_destroy(error);
    end(std::move(flight->done), result);
}

void KafkaSends::end(Completion done, SendResult result) {
    const tp::MutexLock lock(m_mutex);
    m_ended.push_back({std::move(done), std::move(result)});
}

void KafkaSends::onDelivery(rd_kafka_t* handle, const rd_kafka_message_t* message, void* self) {
    const std::unique_ptr<Flight> flight(static_cast<Flight*>(message->_private));
    if (message->err == RD_KAFKA_RESP_ERR_NO_ERROR) {
        static_cast<KafkaClient*>(self)->answered();
        if (message->offset < 0) {
            // It was sent again, and the server knows only that it has it.
            flight->done({SendResult::Outcome::Conflict, 0, 0, "it is stored, and nobody knows where"});
            return;
        }
        flight->done({SendResult::Outcome::Stored, static_cast<std::uint64_t>(message->offset) + 1, 0, {}});
        return;
    }
    char fatal[256] = {};
    const rd_kafka_resp_err_t root = rd_kafka_fatal_error(handle, fatal, sizeof fatal);
    const bool isFatal = root != RD_KAFKA_RESP_ERR_NO_ERROR;
    const std::string cause = isFatal ? fatal : rd_kafka_err2str(message->err);
    flight->done({outcomeOf(message->err), 0, 0, cause + adviceFor(isFatal ? root : message->err)});
}

void KafkaSends::callEnded() {
    std::vector<Ended> ended;
    {
        const tp::MutexLock lock(m_mutex);
        ended.swap(m_ended);
    }
    for (const Ended& each : ended)
        each.done(each.result);
}

void KafkaSends::lookForServer(KafkaClient& client) {
    const rd_kafka_metadata_t* raw = nullptr;
    if (rd_kafka_metadata(client.get(), 0, nullptr, &raw, kProbeMilliseconds) == RD_KAFKA_RESP_ERR_NO_ERROR) {
        const KafkaMetadata metadata(raw);
        client.answered();
    }
}

void KafkaSends::poll() {
    while (!m_isEnding.load()) {
        const std::shared_ptr<KafkaClient> present = client();
        rd_kafka_poll(present->get(), kPollMilliseconds);
        callEnded();
        if (!present->isConnected())
            lookForServer(*present);
        if (rd_kafka_fatal_error(present->get(), nullptr, 0) != RD_KAFKA_RESP_ERR_NO_ERROR)
            replace();
        endRetired();
    }
}

void KafkaSends::replace() {
    try {
        std::shared_ptr<KafkaClient> next = makeClient();
        const tp::MutexLock lock(m_mutex);
        m_client.swap(next);
        m_retired.push_back(std::move(next));
    } catch (const BusError&) {
        // No room for its threads, say: what is sent meanwhile fails, and the next round tries again.
    }
}

void KafkaSends::endRetired() {
    std::erase_if(m_retired, [](const std::shared_ptr<KafkaClient>& each) {
        // Whoever has it from before may still be sending.
        const bool isUsed = each.use_count() > 1;
        // It can't know any more what it has stored: what is on its way is sent again, by another one.
        rd_kafka_purge(each->get(), RD_KAFKA_PURGE_F_QUEUE | RD_KAFKA_PURGE_F_INFLIGHT);
        rd_kafka_poll(each->get(), 0);
        return !isUsed && rd_kafka_outq_len(each->get()) == 0;
    });
}

} // namespace tivra_bus
