#include "nats/NatsPublisher.h"

#include "bus/BatchHeader.h"
#include "bus/BusError.h"
#include "bus/SubjectNames.h"
#include "nats/NatsAnswer.h"
#include "nats/NatsLayout.h"

#include <fmt/format.h>

#include <charconv>

namespace tivra_bus {

namespace {

/// The stream's last message has to be this one.
constexpr const char* kExpectedInStream = "Nats-Expected-Last-Sequence";
/// The same of the subject's last message.
constexpr const char* kExpectedOfSubject = "Nats-Expected-Last-Subject-Sequence";

/// The text of a header; empty where there is none.
std::string_view headerOf(natsMsg* message, const char* name) {
    const char* text = nullptr;
    return natsMsgHeader_Get(message, name, &text) == NATS_OK && text != nullptr ? text : std::string_view{};
}

/// What an answer says: the acknowledgement of a message, or last values that were asked for.
SendResult resultOf(natsMsg* message, std::string_view bytes) {
    using Outcome = SendResult::Outcome;
    if (const std::string_view status = headerOf(message, "Status"); status == "404")
        return {Outcome::Stored, 0, 0, {}};
    else if (!status.empty())
        return {Outcome::Failed, 0, 0,
                "nobody answers; see that JetStream is on and that its cluster has a leader"};
    if (const std::string_view position = headerOf(message, "Nats-Sequence"); !position.empty()) {
        SendResult result{Outcome::Stored, 0, epochOfLast(bytes), {}};
        std::from_chars(position.data(), position.data() + position.size(), result.position);
        return result;
    }
    return acknowledgementOf(bytes);
}

} // namespace

NatsPublisher::NatsPublisher(const NatsConnection& connection, std::chrono::milliseconds patience)
    : m_connection(connection), m_pending(patience) {
    natsInbox* inbox = nullptr;
    m_connection.check(natsInbox_Create(&inbox), "an inbox for acknowledgements");
    m_inbox = std::string(inbox) + '.';
    natsInbox_Destroy(inbox);
    natsSubscription* answers = nullptr;
    m_connection.check(
        natsConnection_Subscribe(&answers, m_connection.get(), (m_inbox + "*").c_str(), onAnswer, this),
        "listening for acknowledgements");
    m_answers.reset(answers);
    m_connection.check(natsSubscription_SetOnCompleteCB(answers, onAnswersEnded, this),
                       "listening for acknowledgements");
    natsSubscription_SetPendingLimits(answers, -1, -1);
}

NatsPublisher::~NatsPublisher() {
    natsSubscription_Unsubscribe(m_answers.get());
    // The client library calls back once more when its thread is done with the subscription.
    const tp::MutexLock lock(m_mutex);
    while (!m_haveAnswersEnded)
        m_changed.wait(m_mutex);
}

void NatsPublisher::onAnswersEnded(void* self) {
    auto& own = *static_cast<NatsPublisher*>(self);
    const tp::MutexLock lock(own.m_mutex);
    own.m_haveAnswersEnded = true;
    own.m_changed.notifyAll();
}

void NatsPublisher::onAnswer(natsConnection*, natsSubscription*, natsMsg* message, void* self) {
    const NatsMessage owner(message);
    auto& own = *static_cast<NatsPublisher*>(self);
    const std::string_view subject = natsMsg_GetSubject(message);
    if (subject.size() <= own.m_inbox.size())
        return;
    std::uint64_t number = 0;
    std::from_chars(subject.data() + own.m_inbox.size(), subject.data() + subject.size(), number);
    const std::string_view bytes(natsMsg_GetData(message),
                                 static_cast<std::size_t>(natsMsg_GetDataLength(message)));
    own.m_pending.end(number, resultOf(message, bytes));
}

void NatsPublisher::send(const std::string& subject, std::string_view bytes, const char* header,
                         std::uint64_t value, SendTicket ticket) {
    const std::uint64_t number = m_pending.add(std::move(ticket));
    const std::string reply = m_inbox + std::to_string(number);
    natsMsg* raw = nullptr;
    natsStatus status =
        natsMsg_Create(&raw, subject.c_str(), reply.c_str(), bytes.data(), static_cast<int>(bytes.size()));
    const NatsMessage message(raw);
    if (status == NATS_OK && header != nullptr)
        status = natsMsgHeader_Set(raw, header, std::to_string(value).c_str());
    if (status == NATS_OK)
        status = natsConnection_PublishMsg(m_connection.get(), raw);
    if (status != NATS_OK)
        m_pending.failed(
            number, {status == NATS_MAX_PAYLOAD ? SendResult::Outcome::TooBig : SendResult::Outcome::Failed,
                     0, 0, natsStatus_GetText(status)});
}

void NatsPublisher::sendBatch(unsigned partition, std::string_view batch, std::uint64_t expected,
                              SendTicket ticket) {
    send(tickSubject(partition), batch, kExpectedInStream, expected, std::move(ticket));
}

void NatsPublisher::findLast(int source, std::string_view symbol, SendTicket ticket) {
    send("$JS.API.DIRECT.GET.TIVRA_LAST." + lastSubject(source, symbol), {}, nullptr, 0, std::move(ticket));
}

void NatsPublisher::sendLast(int source, std::string_view symbol, std::string_view message,
                             std::uint64_t expected, SendTicket ticket) {
    send(lastSubject(source, symbol), message, kExpectedOfSubject, expected, std::move(ticket));
}

void NatsPublisher::sendStatus(int source, std::string_view message) {
    send(statusSubject(source), message, nullptr, 0, {});
}

void NatsPublisher::sendLive(int source, std::string_view symbol, std::string_view record) {
    natsConnection_Publish(m_connection.get(), liveSubject(source, symbol).c_str(), record.data(),
                           static_cast<int>(record.size()));
}

void NatsPublisher::flush() {
    m_pending.expire();
}

void NatsPublisher::prepare(const BusLayout& layout) {
    prepareNats(m_connection, layout);
}

std::uint64_t NatsPublisher::storeDictionary(const std::string& text) {
    return storeNatsDictionary(m_connection, text);
}

StreamEnd NatsPublisher::endOf(unsigned partition) {
    const std::string stream = fmt::format("TIVRA_TICK_{}", partition);
    const std::string attempt = "the end of the stream " + stream;
    natsMsg* raw = nullptr;
    const natsStatus status = js_GetLastMsg(&raw, m_connection.context(), stream.c_str(),
                                            tickSubject(partition).c_str(), nullptr, nullptr);
    const NatsMessage message(raw);
    StreamEnd end;
    if (status == NATS_NOT_FOUND) {
        // Its messages may all have become too old: the next position isn't the first one then.
        jsStreamInfo* info = nullptr;
        m_connection.check(js_GetStreamInfo(&info, m_connection.context(), stream.c_str(), nullptr, nullptr),
                           attempt + "; a bridge creates it when it starts");
        const NatsStreamInfo owner(info);
        end.position = info->State.LastSeq;
        return end;
    }
    m_connection.check(status, attempt);
    end.position = natsMsg_GetSequence(raw);
    try {
        std::size_t length = 0;
        const BatchHeader header =
            readHeader({natsMsg_GetData(raw), static_cast<std::size_t>(natsMsg_GetDataLength(raw))}, length);
        end.epoch = header.epoch;
        end.batch = header.batch;
        end.time = header.time;
    } catch (const BatchError&) {
        // Something that no bridge has written: it has a place in the stream, and says nothing of a writer.
    }
    return end;
}

std::size_t NatsPublisher::maxMessage() const {
    const std::int64_t most = natsConnection_GetMaxPayload(m_connection.get());
    return most > 0 ? static_cast<std::size_t>(most) : std::size_t{1} << 20;
}

} // namespace tivra_bus
