#include "nats/NatsInbox.h"

#include "nats/NatsAnswer.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>

namespace tivra_bus {

namespace {

using Outcome = SendResult::Outcome;

/// The text of a header; empty where there is none.
std::string_view headerOf(natsMsg* message, const char* name) {
    const char* text = nullptr;
    return natsMsgHeader_Get(message, name, &text) == NATS_OK && text != nullptr ? text : std::string_view{};
}

SendResult nobodyAnswers() {
    return {Outcome::Failed, 0, 0,
            "nobody answers; see that JetStream is on and that its cluster has a leader"};
}

/// What an answer says: the acknowledgement of a message, or last values that were asked for.
SendResult resultOf(natsMsg* message, std::string_view bytes) {
    if (const std::string_view status = headerOf(message, "Status"); status == "404")
        return {Outcome::Stored, 0, 0, {}};
    else if (!status.empty())
        return nobodyAnswers();
    if (const std::string_view position = headerOf(message, "Nats-Sequence"); !position.empty()) {
        SendResult result{Outcome::Stored, 0, epochOfLast(bytes), {}};
        std::from_chars(position.data(), position.data() + position.size(), result.position);
        return result;
    }
    return acknowledgementOf(bytes);
}

} // namespace

NatsInbox::NatsInbox(const NatsConnection& connection, std::chrono::milliseconds patience)
    : m_connection(connection), m_pending(patience) {
    natsInbox* inbox = nullptr;
    m_connection.check(natsInbox_Create(&inbox), "an inbox for acknowledgements");
    m_subject = std::string(inbox) + '.';
    natsInbox_Destroy(inbox);
    natsSubscription* answers = nullptr;
    m_connection.check(natsConnection_SubscribeSync(&answers, m_connection.get(), (m_subject + '*').c_str()),
                       "listening for acknowledgements");
    m_answers.reset(answers);
    natsSubscription_SetPendingLimits(answers, -1, -1);
}

NatsInbox::~NatsInbox() {
    natsSubscription_Unsubscribe(m_answers.get());
}

void NatsInbox::send(const std::string& subject, std::string_view bytes, const char* header,
                     std::uint64_t value, SendTicket ticket) {
    const std::uint64_t number = m_pending.add(std::move(ticket));
    const std::string reply = m_subject + std::to_string(number);
    natsMsg* raw = nullptr;
    natsStatus status =
        natsMsg_Create(&raw, subject.c_str(), reply.c_str(), bytes.data(), static_cast<int>(bytes.size()));
    NatsMessage message(raw);
    if (status == NATS_OK && header != nullptr)
        status = natsMsgHeader_Set(raw, header, std::to_string(value).c_str());
    if (status == NATS_OK)
        status = natsConnection_PublishMsg(m_connection.get(), raw);
    if (status != NATS_OK)
        m_pending.failed(number, {status == NATS_MAX_PAYLOAD ? Outcome::TooBig : Outcome::Failed, 0, 0,
                                  natsStatus_GetText(status)});
    const tp::MutexLock lock(m_mutex);
    m_used.push_back(std::move(message));
}

void NatsInbox::take(natsMsg* message) {
    const std::string_view subject = natsMsg_GetSubject(message);
    if (subject.size() <= m_subject.size())
        return;
    std::uint64_t number = 0;
    std::from_chars(subject.data() + m_subject.size(), subject.data() + subject.size(), number);
    const std::string_view bytes(natsMsg_GetData(message),
                                 static_cast<std::size_t>(natsMsg_GetDataLength(message)));
    m_pending.end(number, resultOf(message, bytes));
}

void NatsInbox::take(natsStatus status, natsMsg* message) {
    if (status == NATS_OK)
        take(message);
    else if (status == NATS_NO_RESPONDERS)
        m_pending.failAll(nobodyAnswers());
}

bool NatsInbox::await(std::chrono::milliseconds longest) {
    natsMsg* raw = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&raw, m_answers.get(), longest.count());
    NatsMessage message(raw);
    take(status, raw);
    const tp::MutexLock lock(m_mutex);
    m_used.push_back(std::move(message));
    return status == NATS_OK || status == NATS_TIMEOUT || status == NATS_NO_RESPONDERS;
}

void NatsInbox::collect(bool isLost, std::vector<NatsMessage>& used) {
    {
        const tp::MutexLock lock(m_mutex);
        std::move(m_used.begin(), m_used.end(), std::back_inserter(used));
        m_used.clear();
    }
    // Asking for a message that isn't there would be a call of the kernel.
    int waiting = 0;
    for (natsSubscription_GetPending(m_answers.get(), &waiting, nullptr); waiting > 0; --waiting) {
        natsMsg* raw = nullptr;
        const natsStatus status = natsSubscription_NextMsg(&raw, m_answers.get(), 0);
        used.emplace_back(raw);
        take(status, raw);
    }
    if (isLost)
        m_pending.failAll({Outcome::Failed, 0, 0, "the connection was lost before its acknowledgement"});
    m_pending.expire();
}

} // namespace tivra_bus
