#include "nats/NatsConsumer.h"

#include "bus/SubjectNames.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

namespace tivra_bus {

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr nanoseconds kHeartbeat = seconds(1);
/// After which the server forgets a consumer that nobody listens to.
constexpr nanoseconds kForgottenAfter = seconds(10);
/// Of messages that wait for the reader's thread to have room, above what flow control lets through.
constexpr int kPendingBytes = 128 << 20;

/// "$JS.ACK.stream.consumer.delivered.position.order.time.behind", or with a domain and an account after
/// "ACK".
bool readPlace(std::string_view reply, StreamMessage& message) {
    std::array<std::string_view, 16> words;
    std::size_t count = 0;
    while (count < words.size()) {
        const std::size_t dot = reply.find('.');
        words[count++] = reply.substr(0, dot);
        if (dot == std::string_view::npos)
            break;
        reply.remove_prefix(dot + 1);
    }
    if (count < 9 || words[0] != "$JS" || words[1] != "ACK")
        return false;
    const std::size_t shift = count >= 11 ? 2 : 0;
    const auto number = [&](std::size_t index, std::uint64_t& value) {
        const std::string_view word = words[index + shift];
        return std::from_chars(word.data(), word.data() + word.size(), value).ec == std::errc();
    };
    return number(5, message.position) && number(6, message.order) && number(8, message.behind);
}

/// A sign of life or a question whether this consumer keeps up, which has to be answered.
bool takeControl(natsConnection* connection, natsMsg* message) {
    const char* status = nullptr;
    if (natsMsgHeader_Get(message, "Status", &status) != NATS_OK || status == nullptr)
        return false;
    const char* reply = natsMsg_GetReply(message);
    if (reply == nullptr || *reply == '\0')
        natsMsgHeader_Get(message, "Nats-Consumer-Stalled", &reply);
    if (reply != nullptr && *reply != '\0')
        natsConnection_Publish(connection, reply, nullptr, 0);
    return true;
}

} // namespace

NatsConsumer::NatsConsumer(const NatsConnection& connection, unsigned partition, const StreamStart& start,
                           BusSource::OnMessage onMessage) {
    const std::string stream = fmt::format("TIVRA_TICK_{}", partition);
    natsInbox* rawInbox = nullptr;
    connection.check(natsInbox_Create(&rawInbox), "an inbox for " + stream);
    const std::string inbox = rawInbox;
    natsInbox_Destroy(rawInbox);
    auto receiver = std::make_unique<Receiver>(Receiver{std::move(onMessage)});
    natsSubscription* raw = nullptr;
    connection.check(natsConnection_Subscribe(&raw, connection.get(), inbox.c_str(), NatsConsumer::onMessage,
                                              receiver.get()),
                     "listening for " + stream);
    m_subscription.reset(raw);
    connection.check(natsSubscription_SetOnCompleteCB(raw, onEnd, receiver.get()), "listening for " + stream);
    (void)receiver.release(); // onEnd() owns it
    natsSubscription_SetPendingLimits(raw, -1, kPendingBytes);

    jsConsumerConfig config;
    jsConsumerConfig_Init(&config);
    config.DeliverSubject = inbox.c_str();
    config.AckPolicy = js_AckNone;
    config.MaxDeliver = 1;
    config.FlowControl = true;
    config.Heartbeat = kHeartbeat.count();
    config.InactiveThreshold = kForgottenAfter.count();
    config.MemoryStorage = true;
    if (const auto* const position = std::get_if<std::uint64_t>(&start)) {
        config.DeliverPolicy = js_DeliverByStartSequence;
        config.OptStartSeq = *position;
    } else {
        config.DeliverPolicy = js_DeliverByStartTime;
        config.OptStartTime =
            nanoseconds(std::get<std::chrono::system_clock::time_point>(start).time_since_epoch()).count();
    }
    jsConsumerInfo* info = nullptr;
    connection.check(js_AddConsumer(&info, connection.context(), stream.c_str(), &config, nullptr, nullptr),
                     "reading the stream " + stream);
    m_behind = info->NumPending;
    jsConsumerInfo_Destroy(info);
}

NatsConsumer::~NatsConsumer() = default;

void NatsConsumer::onEnd(void* receiver) {
    const std::unique_ptr<Receiver> owner(static_cast<Receiver*>(receiver));
}

void NatsConsumer::onMessage(natsConnection* connection, natsSubscription*, natsMsg* raw, void* receiver) {
    const NatsMessage owner(raw);
    StreamMessage message;
    const char* const reply = natsMsg_GetReply(raw);
    if (!takeControl(connection, raw)) {
        if (reply == nullptr || !readPlace(reply, message))
            return; // somebody else has published onto this inbox
        message.bytes.assign(natsMsg_GetData(raw), static_cast<std::size_t>(natsMsg_GetDataLength(raw)));
    }
    static_cast<Receiver*>(receiver)->onMessage(std::move(message));
}

} // namespace tivra_bus
