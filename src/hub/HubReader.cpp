#include "hub/HubReader.h"

#include <poll.h>

#include <cerrno>
#include <string>
#include <vector>

#include <tp/Clock.h>
#include <tp/eprintf.h>
#include <tp/isTransient.h>
#include <tp/te_error.h>

#include "dictionary/MetaTokenMap.h"
#include "hub/HubHeartbeat.h"
#include "hub/HubReaderPort.h"
#include "hub/HubSocket.h"
#include "hub/MessageReading.h"
#include "hub/ReactorRegistration.h"
#include "hub/handshake/Handshake.h"
#include "kvnparse/FrameFormat.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"
#include "kvnparse/StreamFramer.h"
#include "kvnparse/StreamParser.h"
#include "receive/Queue.h"

namespace tivra_internal {

namespace {

/// Space for the longest frame that the handshake takes.
constexpr int kParserBufferSize = KVNAPI::kKvnMaxBody;
/// The most messages of a compressed handshake that are taken at one go: a few bytes can hold very many,
/// and the thread serves other hubs too.
constexpr int kMaxMessages = 10'000;
/// The most reads at one go of what an encryption has taken in: the thread serves other hubs too.
constexpr int kMaxReads = 8;

std::string lastParserError() {
    return std::string(tp::te_geterror()).substr(0, kMaxLoggedText);
}

} // namespace

HubReader::HubReader(HubReaderPort& port, const HubSocket& socket, ReactorRegistration& registration,
                     Handshake& handshake, HubHeartbeat& heartbeat, MetaTokenMap& dictionary, Queue& queue,
                     bool compression)
    : m_port(port)
    , m_socket(socket)
    , m_registration(registration)
    , m_handshake(handshake)
    , m_heartbeat(heartbeat)
    , m_dicMetaMap(dictionary)
    , m_responseQueue(queue)
    , m_compression(compression) {}

HubReader::~HubReader() = default;

void HubReader::read(double curtime) {
    if (!prepare())
        return;
    readOnce(curtime);
    readMore(curtime);
    m_port.closeIfOutOfStep();
}

// What has been decrypted or lies encrypted in memory wakes nobody.
void HubReader::readMore(double curtime) {
    for (int i = 0; i < kMaxReads && isMoreAtHand(); ++i)
        readOnce(curtime);
    awaitRest();
}

void HubReader::awaitRest() {
    if (isMoreAtHand())
        m_port.continueSoon();
    if (m_socket.readAwaitsRoom() && m_phase != Phase::Held)
        m_registration.awaitRoom();
}

bool HubReader::isMoreAtHand() const {
    return m_phase == Phase::Open && m_socket.stream().hasUnread() && !m_responseQueue.readsSuspended();
}

void HubReader::readOnce(double curtime) {
    if (m_port.isReady())
        readIntoQueue(curtime);
    else if (m_compression)
        readCompressed();
    else
        readFramed();
}

bool HubReader::prepare() {
    if (m_phase != Phase::Fresh)
        return true;
    m_registration.watchReads();
    m_phase = Phase::Open;
    return prepareParsers();
}

void HubReader::forget() {
    m_phase = Phase::Fresh;
    m_hasHeard = false;
    m_isClosedByPeer = false;
    if (zkvnParser != nullptr)
        zkvnParser->reset();
    if (kvnParser != nullptr)
        kvnParser->reset();
    if (framer != nullptr)
        framer->reset();
}

void HubReader::readLeftOver(double curtime) {
    if (m_phase == Phase::MessagesLeft)
        pullCompressed(false);
    if (isMoreAtHand())
        readMore(curtime);
}

// False when a parser can't be had, which has taken the client out of use.
bool HubReader::prepareParsers() {
    if (m_compression) {
        if (zkvnParser == nullptr)
            zkvnParser = KVNAPI::StreamParser::alloc("zkvn", &m_dicMetaMap, kParserBufferSize);
    } else {
        if (framer == nullptr)
            framer = KVNAPI::StreamFramer::alloc("kvn", kParserBufferSize);
        if (framer == nullptr) {
            const std::string line = "KVNAPI::StreamFramer -- " + lastParserError();
            eprintf(EPF_WARN, "%s\n", line.c_str());
            m_port.suspendClient(line);
            return false;
        }
        if (kvnParser == nullptr)
            kvnParser = KVNAPI::Parser::alloc("kvn", &m_dicMetaMap, kParserBufferSize);
    }
    if (zkvnParser == nullptr && kvnParser == nullptr) {
        const std::string line = "Unknown type: -- " + lastParserError();
        eprintf(EPF_CRIT, "%s\n", line.c_str());
        m_port.suspendClient(line);
        return false;
    }
    return true;
}

void HubReader::readIntoQueue(double curtime) {
    if (!m_responseQueue.readFromSocketThenWriteToQueue(m_socket.stream(), zkvnParser.get(), curtime)) {
        noteSignOfLife();
        if (!m_port.closeIfOutOfStep())
            holdReads();
        return;
    }
    m_port.leaveAfterReadFailure();
}

void HubReader::noteSignOfLife() {
    if (m_responseQueue.takeSignOfLife())
        m_heartbeat.setSeen(true);
}

// A socket whose bytes are not taken would call for attention without end, and so would its hang-up, which
// can't be unwatched: the socket leaves the reactor. The supervisor finds a close.
void HubReader::holdReads() {
    const bool atEnd = m_responseQueue.sawEndOfStream();
    if (!atEnd && !m_responseQueue.readsSuspended())
        return;
    if (!m_registration.hold(atEnd))
        return;
    m_phase = atEnd ? Phase::Open : Phase::Held;
    // The reader may have made space before it heard that somebody waits for it.
    if (holdsReads() && !m_responseQueue.awaitRoom())
        retryHeldReads(tp::Clock::now());
}

void HubReader::continueHeldReads(double curtime) {
    if (m_port.isReady())
        m_responseQueue.calcQueueFullStats();
    if (holdsReads() && m_port.isReady())
        retryHeldReads(curtime);
    if (m_port.isReady() && m_responseQueue.hasInputLeft()) {
        if (m_responseQueue.continueInflating(m_socket.stream(), zkvnParser.get(), curtime))
            m_port.leaveAfterReadFailure();
        else
            holdReads(); // input that is left waits for room too, though no byte may wait in the socket
    }
    noteSignOfLife();
    if (!m_port.closeIfOutOfStep())
        awaitRest();
}

// Does the refused, or after a while forced, read in the event's place; ends the hold once the queue takes
// bytes again.
void HubReader::retryHeldReads(double curtime) {
    if (m_responseQueue.readsSuspended()) {
        pollfd watched{m_socket.fd(), POLLIN, 0};
        // What is left of a connection that has ended is not waited for: the supervisor closes it.
        const bool isSignalled = ::poll(&watched, 1, 0) > 0;
        if (isSignalled ? (watched.revents & (POLLHUP | POLLERR)) == 0 : m_socket.stream().hasUnread()) {
            m_heartbeat.setSeen(true); // silence means nothing while bytes are left where they are
            readIntoQueue(curtime);
        }
    }
    if (!holdsReads() || m_responseQueue.readsSuspended())
        return;
    m_phase = Phase::Open;
    m_registration.resume(m_socket.fd());
}

void HubReader::closedByPeer() {
    m_isClosedByPeer = true;
    eprintf(m_socket.isDialRepeated() ? EPF_DBUG : EPF_INFO,
            "=== Socket Close Detected on Read - Connection will be Reset ===; fd=%d", m_socket.fd());
    m_port.closeConnection();
}

void HubReader::readCompressed() {
    std::size_t space = 0;
    const int64_t got = zkvnParser->push(m_socket.stream(), &space);
    const int error = errno;
    // Without space there was no read.
    const bool inputFull = space == 0;
    if (got == 0) {
        closedByPeer();
        return;
    }
    if (got < 0 && !tp::isTransient(error)) {
        eprintf(EPF_WARN, "KVNAPI::StreamParser error: %s", lastParserError().c_str());
        closedByPeer();
        return;
    }
    pullCompressed(inputFull);
}

void HubReader::pullCompressed(bool inputFull) {
    m_phase = Phase::Open;
    int taken = 0;
    while (m_socket.fd() >= 0) {
        if (m_port.isReady()) {
            settleStream();
            return;
        }
        if (taken == kMaxMessages) {
            m_phase = Phase::MessagesLeft;
            return;
        }
        KVNAPI::Message message;
        const int rc = zkvnParser->pull(&message);
        if (rc > 0)
            break;
        ++taken;
        if (rc < 0) {
            const std::string text = lastParserError();
            eprintf(EPF_WARN, "HubClient::readableEvent pull error: %s", text.c_str());
            m_port.suspendClient("Error decompressing/parsing response from HUB: " + text);
            return;
        }
        m_hasHeard = true;
        m_handshake.take(message);
    }
    if (inputFull && taken == 0)
        m_port.suspendClient("Error decompressing/parsing response from HUB: Block too large");
}

// What came with the last answer of the handshake is dropped, but it has to be inflated: the queue's first
// read goes on behind it. From here on a fault costs the connection and not the hub.
void HubReader::settleStream() {
    std::vector<char> dropped(kParserBufferSize);
    for (;;) {
        KVNAPI::bufref out(dropped.data(), dropped.size());
        if (zkvnParser->pull(&out) != 0) {
            eprintf(EPF_WARN, "HubClient::readableEvent pull error: %s", lastParserError().c_str());
            m_port.leaveAfterReadFailure();
            return;
        }
        if (out.len < dropped.size())
            return;
    }
}

void HubReader::readFramed() {
    const int got = framer->push(m_socket.stream());
    if (got < 0) {
        if (tp::isTransient(errno))
            return;
        eprintf(EPF_WARN, "KVNAPI::Framer error: rc=%d", errno);
    }
    if (got <= 0) {
        closedByPeer();
        return;
    }
    while (m_socket.fd() >= 0) {
        KVNAPI::bufref frame;
        const int rc = framer->pull(&frame);
        if (rc > 0)
            return;
        if (rc < 0) {
            const std::string text = lastParserError();
            eprintf(EPF_WARN, "KVNAPI::Framer error: %s", text.c_str());
            m_port.suspendClient("Error framing response from HUB: " + text);
            return;
        }
        takeFrame(frame);
        if (m_port.isReady()) {
            handOverUnconsumed();
            return;
        }
    }
}

void HubReader::takeFrame(KVNAPI::bufref frame) {
    if (kvnParser == nullptr) {
        eprintf(EPF_WARN, "HubClient::process_kvn_buffer- no parser_");
        return;
    }
    kvnParser->push(frame);
    while (m_socket.fd() >= 0) {
        KVNAPI::Message message;
        const int rc = kvnParser->pull(&message);
        if (rc > 0)
            return;
        if (rc == 0) {
            m_hasHeard = true;
            m_handshake.take(message);
            continue;
        }
        const std::string text = lastParserError();
        eprintf(EPF_WARN, "HubClient::process_kvn_buffer pull error: %s", text.c_str());
        if (m_port.isReady())
            m_responseQueue.printStats(false, false, 0.0);
        m_port.suspendClient("Error parsing response from HUB: " + text);
    }
}

// Bytes that came with the last answer of the handshake are the first of the stream.
void HubReader::handOverUnconsumed() {
    std::vector<char> rest(kParserBufferSize);
    const int count = framer->moveRemaining(KVNAPI::bufref(rest.data(), rest.size()));
    framer->reset();
    if (count > 0 && m_responseQueue.takeOver(KVNAPI::bufref(rest.data(), static_cast<std::size_t>(count))))
        m_port.leaveAfterReadFailure();
}

} // namespace tivra_internal
