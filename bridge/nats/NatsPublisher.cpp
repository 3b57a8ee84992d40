#include "nats/NatsPublisher.h"

#include "bus/BatchReader.h"
#include "bus/BusError.h"
#include "bus/SubjectNames.h"
#include "nats/NatsLayout.h"

#include <fmt/format.h>

#include <utility>

namespace tivra_bus {

namespace {

/// The stream's last message has to be this one.
constexpr const char* kExpectedInStream = "Nats-Expected-Last-Sequence";
/// The same of the subject's last message.
constexpr const char* kExpectedOfSubject = "Nats-Expected-Last-Subject-Sequence";

} // namespace

NatsPublisher::NatsPublisher(const NatsConnection& connection, std::chrono::milliseconds patience)
    : m_connection(connection), m_patience(patience), m_last(connection, patience) {}

void NatsPublisher::sendBatch(unsigned partition, std::string_view batch, std::uint64_t expected,
                              SendTicket ticket) {
    m_batches[partition]->send(tickSubject(partition), batch, kExpectedInStream, expected, std::move(ticket));
}

void NatsPublisher::findLast(int source, std::string_view symbol, SendTicket ticket) {
    m_last.send("$JS.API.DIRECT.GET.TIVRA_LAST." + lastSubject(source, symbol), {}, nullptr, 0,
                std::move(ticket));
}

void NatsPublisher::sendLast(int source, std::string_view symbol, std::string_view message,
                             std::uint64_t expected, SendTicket ticket) {
    m_last.send(lastSubject(source, symbol), message, kExpectedOfSubject, expected, std::move(ticket));
}

void NatsPublisher::sendStatus(int source, std::string_view message) {
    natsConnection_Publish(m_connection.get(), statusSubject(source).c_str(), message.data(),
                           static_cast<int>(message.size()));
}

void NatsPublisher::sendLive(int source, std::string_view symbol, std::string_view record) {
    natsConnection_Publish(m_connection.get(), liveSubject(source, symbol).c_str(), record.data(),
                           static_cast<int>(record.size()));
}

void NatsPublisher::flush() {
    std::vector<NatsMessage> used;
    const std::uint64_t losses = m_connection.losses();
    const bool isLost = std::exchange(m_losses, losses) != losses;
    for (const std::unique_ptr<NatsInbox>& inbox : m_batches)
        inbox->collect(isLost, used);
    m_last.collect(isLost, used);
}

bool NatsPublisher::awaitAnswer(unsigned partition, std::chrono::milliseconds longest) {
    return m_batches[partition]->await(longest);
}

void NatsPublisher::prepare(const BusLayout& layout) {
    prepareNats(m_connection, layout);
    while (m_batches.size() < layout.partitions)
        m_batches.push_back(std::make_unique<NatsInbox>(m_connection, m_patience));
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
        const BatchHeader header =
            headerOf({natsMsg_GetData(raw), static_cast<std::size_t>(natsMsg_GetDataLength(raw))});
        end.epoch = header.epoch;
        end.batch = header.batch;
        end.writer = header.writer;
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
