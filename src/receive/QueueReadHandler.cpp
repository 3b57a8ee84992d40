#include "receive/QueueReadHandler.h"

#include <session/MessageEventHandler.h>

#include <tp/Clock.h>
#include <tp/callOut.h>
#include <tp/eprintf.h>
#include <tp/te_error.h>

#include "config/HostConfigImpl.h"
#include "dictionary/MetaTokenMap.h"
#include "kvnparse/FrameFormat.h"
#include "receive/LibraryTags.h"
#include "receive/MessageEventImpl.h"
#include "receive/PairValue.h"
#include "receive/Queue.h"
#include "receive/ReadHandlerHub.h"
#include "receive/ReadHandlerSession.h"
#include "receive/SystemSource.h"
#include "request/CommandClasses.h"

namespace tivra_internal {
namespace {

/// Frames with a longer body never come out of the queue.
constexpr int kMaxFrame = Queue::kMaxBody;
constexpr const char* kParserName = "kvn";

void logPullError() {
    eprintf(EPF_WARN, "QueueReadHandler::process_kvn_buffer pull error: %s", tp::te_geterror());
}

/// What a frame has between its header and its end byte.
std::string_view bodyOf(const char* frame, unsigned long length) noexcept {
    const std::string_view bytes(frame, length);
    return length < KVNAPI::kKvnFrameExtra
               ? std::string_view()
               : bytes.substr(KVNAPI::kKvnHeaderSize, length - KVNAPI::kKvnFrameExtra);
}

/// Keeps the event from pointing at a message that is gone, however the callback ends.
class EventScope {
public:
    explicit EventScope(MessageEventImpl& event) noexcept : m_event(event) {}
    ~EventScope() { m_event.releaseMessage(); }
    EventScope(const EventScope&) = delete;
    EventScope& operator=(const EventScope&) = delete;

private:
    MessageEventImpl& m_event;
};

} // namespace

QueueReadHandler::QueueReadHandler(Queue* queue, ReadHandlerSession& session,
                                   const HostConfigImpl* hostConfig, std::unique_ptr<KVNAPI::Parser> parser,
                                   ReadHandlerHub& hub, bool watchlistInUse)
    : m_responseQueue(queue)
    , m_session(session)
    , m_hubClient(hub)
    , MetaMap(hub.getDicMetaMap())
    , m_watchlistInUse(watchlistInUse)
    , kvnParser(std::move(parser))
    , m_statusTok(requireToken("ENUM.QUERY.STATUS"))
    , m_tagTok(requireToken("QUERY.TAG"))
    , m_hubDropTok(requireToken("DROPPED.BYTES"))
    , m_idleCntTok(requireToken("IDLE.COUNT"))
    , m_conflationTok(requireToken("CONFLATION"))
    , m_stream(
          session.openStream(MetaMap, hub.isDummy() ? std::string() : hub.getHubAddr(), *m_responseQueue)) {
    auto event = std::make_unique<MessageEventImpl>(session, hostConfig);
    event->setDicMap(&MetaMap);
    m_event = event.get();
    msgEvent = HandleAccess::make<tivra::MessageEvent>(std::move(event));
}

QueueReadHandler::~QueueReadHandler() {
    if (m_stream != nullptr)
        m_stream->connectionLost(heard());
}

KVNAPI::Token* QueueReadHandler::requireToken(const char* name) const {
    KVNAPI::Token* const token = MetaMap.lookupTokenViaName(name);
    if (token == nullptr)
        eprintf(EPF_CRIT, "QueueReadHandler::QueueReadHandler: %s: %s not defined!",
                m_hubClient.getHubAddr().c_str(), name);
    return token;
}

void QueueReadHandler::readableEvent(double) {
    m_responseQueue->PopElement();
}

bool QueueReadHandler::isStillReadable() const noexcept {
    return !m_responseQueue->isServed();
}

void QueueReadHandler::readableTurn(double, ServeTurn& turn) {
    m_responseQueue->popFrames(turn);
}

bool QueueReadHandler::ensureParser() {
    if (kvnParser != nullptr)
        return true;
    std::unique_ptr<KVNAPI::Parser> parser = KVNAPI::Parser::alloc(kParserName, &MetaMap, kMaxFrame);
    // The library's own messages may carry any number of symbols, which the application reads as fields.
    if (parser == nullptr ||
        (m_hubClient.isDummy() && parser->setOption("DoNotParseSymbolIntoHeader", "1") != 0)) {
        eprintf(EPF_CRIT, "Unknown type: -- %s\n", kParserName);
        return false;
    }
    // A message is gone before the space of its frame is released.
    parser->setTextsInFrame(true);
    parser->setLazyValues(m_lazyValues);
    kvnParser = std::move(parser);
    return true;
}

unsigned QueueReadHandler::process_kvn_buffer(char* buf, unsigned long len, uint64_t* netMsgs) {
    if (!ensureParser())
        return 1;
    const KVNAPI::bufref frame(buf, len);
    m_body = bodyOf(buf, len);
    m_event->setBody(m_body);
    const int result = kvnParser->parseFrame(frame, &m_message);
    if (result > 0)
        return pullMessages(frame, netMsgs);
    if (result < 0) {
        logPullError();
        return 1;
    }
    if (process_message(m_message))
        ++*netMsgs;
    return 0;
}

/// What the queue takes for a frame isn't one to the parser, or holds several messages.
unsigned QueueReadHandler::pullMessages(KVNAPI::bufref bytes, uint64_t* netMsgs) {
    m_body = {};
    // Bytes of this kind before may have left the parser out of step.
    kvnParser->reset();
    kvnParser->push(bytes);
    unsigned failures = 0;
    for (;;) {
        const int result = kvnParser->pull(&m_message);
        if (result > 0)
            return failures;
        if (result < 0) {
            logPullError();
            ++failures;
        } else if (process_message(m_message)) {
            ++*netMsgs;
        }
    }
}

bool QueueReadHandler::process_message(KVNAPI::Message& msg) {
    m_altids.clear();
    Incoming in{msg};
    if (msg.isRetCodePresent)
        readStatus(in);
    if (msg.isTagPresent)
        readTag(in);
    if (in.hasStatus && in.hasTag)
        countAnsweredQuery(in);
    if (msg.exchange != nullptr && msg.exchange->id == kSystemSource && consumeSystemRecord(msg))
        return false;
    if (in.hasTag) {
        if (in.tag == kGetStatusTag || in.tag == kGetHubStatusTag)
            return false;
        if (!applyAlternateIndexes(in))
            return false;
    }
    if (in.hasStatus && !settleStatus(in))
        return false;
    return deliver(in);
}

/// An empty value leaves the flag without a pair: then the message carries no status.
void QueueReadHandler::readStatus(Incoming& in) const noexcept {
    const KVNAPI::TVPair* const pair = in.msg.findPair(m_statusTok);
    in.hasStatus = pair != nullptr;
    if (pair != nullptr)
        in.status = integerOf(*pair);
    else
        in.msg.isRetCodePresent = 0;
}

void QueueReadHandler::readTag(Incoming& in) const noexcept {
    const KVNAPI::TVPair* const pair = in.msg.findPair(m_tagTok);
    in.hasTag = pair != nullptr;
    if (pair != nullptr)
        in.tag = integerOf(*pair);
    else
        in.msg.isTagPresent = 0;
}

void QueueReadHandler::countAnsweredQuery(Incoming& in) {
    if (in.tag <= kLastLibraryTag)
        return;
    const bool isQuery = m_session.isQueryCommand(in.tag, m_hubClient.client(), in.command);
    if (isQuery || isSnapCommand(in.command))
        m_responseQueue->decrQueryCount();
}

bool QueueReadHandler::deliver(Incoming& in) {
    if (m_stream != nullptr) {
        deliverToStream(in);
        return true;
    }
    tivra::MessageEventHandler* const handler = m_session.getMsgEventHandler();
    if (handler == nullptr)
        return false;
    const EventScope scope(*m_event);
    m_event->setMessage(in.msg);
    if (in.hasStatus) {
        m_event->setStatusCode(in.status);
        m_event->setCommand(in.command);
    }
    if (in.hasTag)
        m_event->setTag(in.tag);
    attachIndexes(in);
    tp::callOut("onMessageEvent", [&] { handler->onMessageEvent(*msgEvent); });
    return true;
}

void QueueReadHandler::beginConnection() {
    if (!m_isNewConnection)
        return;
    reportLosses(m_lossesBefore);
    m_isNewConnection = false;
    m_stream->connectionBegins();
}

void QueueReadHandler::deliverToStream(const Incoming& in) {
    beginConnection();
    m_stream->deliver({in.msg, in.hasTag ? in.tag : 0, in.status, in.hasStatus, in.command, this, m_body});
}

double QueueReadHandler::readAt() const {
    return m_responseQueue->frameReadAt();
}

double QueueReadHandler::readOrNow() const {
    const double time = readAt();
    return time > 0.0 ? time : tp::Clock::monotonic();
}

/// Under the queue's reset mutex, with nothing of the lost connections left in the queue. The connection that
/// is delivered may be lost already, which is news only once what it brought has been delivered.
void QueueReadHandler::reportLosses(uint32_t losses) {
    if (losses == m_lossesReported)
        return;
    m_lossesReported = losses;
    m_stream->connectionLost(heard());
}

/// Of the connection of which something has been delivered. What has been read since, of one that hasn't come
/// so far, says nothing of what was sent meanwhile.
double QueueReadHandler::heard() const {
    const double heard = m_isNewConnection ? m_heardBefore : m_responseQueue->deliveredUpTo();
    return heard > 0.0 ? heard : tp::Clock::monotonic();
}

void QueueReadHandler::setHBTime() {
    m_HBTime.store(tp::Clock::monotonic(), std::memory_order_relaxed);
    m_hubClient.setHBSeen(true);
}

bool QueueReadHandler::calcStats(double curtime) {
    return m_responseQueue->calcStatsOut(curtime);
}

void QueueReadHandler::reset() {
    m_heardBefore = heard();
    m_isNewConnection = true;
    m_dropsToldAt = tp::Clock::monotonic();
    m_lossesBefore = m_losses.load(std::memory_order_relaxed);
    m_hubDropsBefore = 0;
    endJitConflation();
    setHubIdleCount(0);
}

void QueueReadHandler::endJitConflation() {
    if (m_lastJitStatus.exchange(0) == 0)
        return;
    m_session.addJitCount(-1);
    eprintf(EPF_INFO, "%s: JIT: this HUB has stopped conflating", m_hubClient.getHubAddr().c_str());
}

} // namespace tivra_internal
