#include "nats/NatsPublisher.h"

#include "bus/BatchHeader.h"
#include "bus/BusError.h"
#include "bus/SubjectNames.h"
#include "nats/NatsLayout.h"

#include <fmt/format.h>

#include <charconv>

namespace tivra_bus {

namespace {

/// The stream's last message has to be this one.
constexpr const char* kExpectedInStream = "Nats-Expected-Last-Sequence";
/// The same of the subject's last message.
constexpr const char* kExpectedOfSubject = "Nats-Expected-Last-Subject-Sequence";

} // namespace

NatsPublisher::NatsPublisher(const NatsConnection& connection, std::chrono::milliseconds patience)
    : m_connection(connection), m_pending(patience) {
    natsInbox* inbox = nullptr;
    m_connection.check(natsInbox_Create(&inbox), "an inbox for acknowledgements");
    m_inbox = inbox;
    natsInbox_Destroy(inbox);
    natsSubscription* answers = nullptr;
    m_connection.check(
        natsConnection_Subscribe(&answers, m_connection.get(), (m_inbox + ".*").c_str(), onAnswer, this),
        "listening for acknowledgements");
    m_answers.reset(answers);
    natsSubscription_SetPendingLimits(answers, -1, -1);
}

NatsPublisher::~NatsPublisher() {
    // A callback that runs has ended once the subscription is destroyed.
    natsSubscription_Unsubscribe(m_answers.get());
    natsSubscription_WaitForDrainCompletion(m_answers.get(), 100);
}

void NatsPublisher::onAnswer(natsConnection*, natsSubscription*, natsMsg* message, void* self) {
    const NatsMessage owner(message);
    auto& own = *static_cast<NatsPublisher*>(self);
    const std::string_view subject = natsMsg_GetSubject(message);
    if (subject.size() <= own.m_inbox.size())
        return;
    std::uint64_t number = 0;
    std::from_chars(subject.data() + own.m_inbox.size() + 1, subject.data() + subject.size(), number);
    own.m_pending.answer(
        number, {natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message))});
}

void NatsPublisher::send(const std::string& subject, std::string_view bytes, const char* header,
                         const std::string& value, Completion done) {
    const std::uint64_t number = m_pending.add(std::move(done));
    const std::string reply = m_inbox + "." + std::to_string(number);
    natsMsg* raw = nullptr;
    natsStatus status =
        natsMsg_Create(&raw, subject.c_str(), reply.c_str(), bytes.data(), static_cast<int>(bytes.size()));
    const NatsMessage message(raw);
    if (status == NATS_OK && header != nullptr)
        status = natsMsgHeader_Set(raw, header, value.c_str());
    if (status == NATS_OK)
        status = natsConnection_PublishMsg(m_connection.get(), raw);
    if (status != NATS_OK)
        m_pending.failed(number, natsStatus_GetText(status));
}

void NatsPublisher::sendBatch(unsigned partition, std::string_view batch, std::uint64_t expected,
                              Completion done) {
    send(tickSubject(partition), batch, kExpectedInStream, std::to_string(expected), std::move(done));
}

void NatsPublisher::sendLast(int source, std::string_view symbol, std::string_view message,
                             std::optional<std::uint64_t> expected, Completion done) {
    send(lastSubject(source, symbol), message, expected ? kExpectedOfSubject : nullptr,
         expected ? std::to_string(*expected) : std::string(), std::move(done));
}

void NatsPublisher::sendStatus(int source, std::string_view message) {
    send(statusSubject(source), message, nullptr, {}, [](const SendResult&) {});
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
    natsMsg* raw = nullptr;
    const natsStatus status = js_GetLastMsg(&raw, m_connection.context(), stream.c_str(),
                                            tickSubject(partition).c_str(), nullptr, nullptr);
    const NatsMessage message(raw);
    StreamEnd end;
    if (status == NATS_NOT_FOUND) {
        // Its messages may all have become too old: the next position isn't the first one then.
        jsStreamInfo* info = nullptr;
        m_connection.check(js_GetStreamInfo(&info, m_connection.context(), stream.c_str(), nullptr, nullptr),
                           "the stream " + stream);
        const NatsStreamInfo owner(info);
        end.position = info->State.LastSeq;
        return end;
    }
    m_connection.check(status, "the end of the stream " + stream);
    end.position = natsMsg_GetSequence(raw);
    std::size_t length = 0;
    const BatchHeader header =
        readHeader({natsMsg_GetData(raw), static_cast<std::size_t>(natsMsg_GetDataLength(raw))}, length);
    end.epoch = header.epoch;
    end.batch = header.batch;
    return end;
}

std::size_t NatsPublisher::maxMessage() const {
    const std::int64_t most = natsConnection_GetMaxPayload(m_connection.get());
    return most > 0 ? static_cast<std::size_t>(most) : std::size_t{1} << 20;
}

} // namespace tivra_bus
