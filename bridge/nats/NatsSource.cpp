#include "nats/NatsSource.h"

#include "bus/BusError.h"
#include "bus/SubjectNames.h"
#include "nats/NatsConsumer.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>

namespace tivra_bus {

namespace {

/// How many times as long as one all answers of a round may take, of an engine that is busy.
constexpr int kRoundPatience = 5;

std::string_view bytesOf(natsMsg* message) {
    return {natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message))};
}

/// The status of an answer without data, as in HTTP; 0 where there is data.
int statusOf(natsMsg* message) {
    const char* status = nullptr;
    if (natsMsgHeader_Get(message, "Status", &status) != NATS_OK || status == nullptr)
        return 0;
    return std::atoi(status);
}

} // namespace

NatsSource::NatsSource(const NatsAddress& address)
    : m_connection(address), m_patience(address.answerMilliseconds) {}

NatsSource::~NatsSource() = default;

std::optional<std::string> NatsSource::entry(const char* bucket, const char* key) {
    const std::string attempt = fmt::format("the key \"{}\" in the bucket {}", key, bucket);
    kvStore* raw = nullptr;
    natsStatus status = js_KeyValue(&raw, m_connection.context(), bucket);
    const NatsBucket owner(raw);
    kvEntry* entry = nullptr;
    if (status == NATS_OK)
        status = kvStore_Get(&entry, raw, key);
    const NatsEntry entryOwner(entry);
    if (status == NATS_NOT_FOUND)
        return std::nullopt;
    m_connection.check(status, attempt);
    return std::string(static_cast<const char*>(kvEntry_Value(entry)),
                       static_cast<std::size_t>(kvEntry_ValueLen(entry)));
}

std::string NatsSource::layout() {
    const std::optional<std::string> text = entry("TIVRA_LEASES", "layout");
    if (!text)
        throw BusError("the engine has no bucket TIVRA_LEASES with a layout: no bridge has published there; "
                       "start tivra-bridge, or see that this user is of the bridges' account");
    return *text;
}

std::string NatsSource::dictionary() {
    return entry("TIVRA_DICTIONARY", "fields").value_or("");
}

std::vector<std::optional<std::string>> NatsSource::lastMessages(const std::string& stream,
                                                                 const std::vector<std::string>& subjects) {
    const std::string attempt = "the last messages of the stream " + stream;
    natsInbox* rawInbox = nullptr;
    m_connection.check(natsInbox_Create(&rawInbox), attempt);
    const std::string inbox = std::string(rawInbox) + ".";
    natsInbox_Destroy(rawInbox);
    natsSubscription* raw = nullptr;
    m_connection.check(natsConnection_SubscribeSync(&raw, m_connection.get(), (inbox + "*").c_str()),
                       attempt);
    const NatsSubscription answers(raw);
    natsSubscription_SetPendingLimits(raw, -1, -1);
    for (std::size_t i = 0; i < subjects.size(); ++i)
        m_connection.check(natsConnection_PublishRequest(
                               m_connection.get(),
                               fmt::format("$JS.API.DIRECT.GET.{}.{}", stream, subjects[i]).c_str(),
                               (inbox + std::to_string(i)).c_str(), nullptr, 0),
                           attempt);
    std::vector<std::optional<std::string>> found(subjects.size());
    const auto deadline = std::chrono::steady_clock::now() + kRoundPatience * m_patience;
    for (std::size_t missing = subjects.size(); missing > 0; --missing) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        natsMsg* message = nullptr;
        m_connection.check(natsSubscription_NextMsg(
                               &message, raw, std::clamp<std::int64_t>(left.count(), 1, m_patience.count())),
                           attempt);
        const NatsMessage owner(message);
        const int status = statusOf(message);
        if (status == 503)
            m_connection.check(NATS_NO_RESPONDERS, attempt);
        const std::string_view subject = natsMsg_GetSubject(message);
        std::size_t index = 0;
        std::from_chars(subject.data() + inbox.size(), subject.data() + subject.size(), index);
        if (index < found.size() && status == 0)
            found[index] = std::string(bytesOf(message));
    }
    return found;
}

std::vector<std::optional<std::string>>
NatsSource::lastValues(const std::vector<tivra::Instrument>& instruments) {
    std::vector<std::string> subjects;
    subjects.reserve(instruments.size());
    for (const tivra::Instrument& instrument : instruments)
        subjects.push_back(lastSubject(instrument.source, instrument.symbol));
    return lastMessages("TIVRA_LAST", subjects);
}

std::optional<std::string> NatsSource::status(int source) {
    return lastMessages("TIVRA_STATUS", {statusSubject(source)}).front();
}

void NatsSource::followStatus(OnStatus onStatus) {
    auto receiver = std::make_unique<OnStatus>(std::move(onStatus));
    natsSubscription* raw = nullptr;
    const std::string subject = fmt::format("tivra.v{}.status.*", kLayoutVersion);
    m_connection.check(natsConnection_Subscribe(
                           &raw, m_connection.get(), subject.c_str(),
                           [](natsConnection*, natsSubscription*, natsMsg* message, void* self) {
                               const NatsMessage owner(message);
                               (*static_cast<OnStatus*>(self))(std::string(bytesOf(message)));
                           },
                           receiver.get()),
                       "listening for the states of sources");
    m_status.reset(raw);
    m_connection.check(
        natsSubscription_SetOnCompleteCB(
            raw, [](void* self) { const std::unique_ptr<OnStatus> owner(static_cast<OnStatus*>(self)); },
            receiver.get()),
        "listening for the states of sources");
    (void)receiver.release(); // the callback at the end owns it
}

StreamSpan NatsSource::spanOf(unsigned partition) {
    const std::string stream = fmt::format("TIVRA_TICK_{}", partition);
    jsStreamInfo* info = nullptr;
    m_connection.check(js_GetStreamInfo(&info, m_connection.context(), stream.c_str(), nullptr, nullptr),
                       "the stream " + stream);
    const NatsStreamInfo owner(info);
    StreamSpan span;
    span.first = info->State.FirstSeq;
    span.last = info->State.LastSeq;
    if (info->State.Msgs == 0)
        span.first = span.last + 1;
    span.lastTime = std::chrono::system_clock::time_point(std::chrono::nanoseconds(info->State.LastTime));
    return span;
}

std::unique_ptr<BusConsumer> NatsSource::follow(unsigned partition, const StreamStart& start,
                                                OnMessage onMessage) {
    return std::make_unique<NatsConsumer>(m_connection, partition, start, std::move(onMessage));
}

} // namespace tivra_bus
