// How a hub client reads: message by message until it is ready, straight into its queue from then on.
#include "hub/HubClient.h"

#include <poll.h>

#include <cerrno>
#include <vector>

#include <tp/Clock.h>
#include <tp/eprintf.h>
#include <tp/te_error.h>

#include "hub/HubEventReactor.h"
#include "hub/HubSession.h"
#include "hub/MessageReading.h"
#include "kvnparse/FrameFormat.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"
#include "kvnparse/StreamFramer.h"
#include "kvnparse/StreamParser.h"
#include "receive/Queue.h"

namespace tivra_internal {

namespace {

/// Room for the longest frame that the conversation takes.
constexpr int kParserBufferSize = KVNAPI::KVN_MAX_BODY;
/// The most messages of a compressed conversation that are taken at one go: a few bytes can hold very many,
/// and the thread serves other hubs too.
constexpr int kMaxMessages = 10'000;

bool isNoError(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

std::string lastParserError() {
    return std::string(tp::te_geterror()).substr(0, kMaxLoggedText);
}

} // namespace

void HubClient::readableEvent(double curtime) {
    if (getFd() < 0)
        return;
    if (m_retired) {
        closeConnection();
        return;
    }
    if (m_first_time && !prepareForFirstEvent())
        return;
    if (isReady())
        readIntoQueue(curtime);
    else if (m_options.compression)
        readCompressed();
    else
        readFramed();
    closeIfOutOfStep();
}

void HubClient::writeableEvent(double) {
    if (m_first_time)
        (void)prepareForFirstEvent();
}

bool HubClient::prepareForFirstEvent() {
    {
        const tp::MutexLock lock(m_huber_mutex);
        if (m_HUB_Event_Reactor != nullptr) {
            m_HUB_Event_Reactor->watchReads(this);
            m_HUB_Event_Reactor->unWatchWrites(this);
        }
    }
    m_first_time = false;
    return prepareParsers();
}

// False when a parser can't be had, which has taken the client out of use.
bool HubClient::prepareParsers() {
    if (m_options.compression) {
        if (zkvnParser == nullptr)
            zkvnParser = KVNAPI::StreamParser::alloc("zkvn", &m_dicMetaMap, kParserBufferSize);
    } else {
        if (framer == nullptr)
            framer = KVNAPI::StreamFramer::alloc("kvn", kParserBufferSize);
        if (framer == nullptr) {
            severe_error(("KVNAPI::StreamFramer -- " + lastParserError()).c_str());
            return false;
        }
        if (kvnParser == nullptr)
            kvnParser = KVNAPI::Parser::alloc("kvn", &m_dicMetaMap, kParserBufferSize);
    }
    if (zkvnParser == nullptr && kvnParser == nullptr) {
        const std::string line = "Unknown type: -- " + lastParserError();
        eprintf(EPF_CRIT, "%s\n", line.c_str());
        suspendClient(line);
        return false;
    }
    return true;
}

void HubClient::severe_error(const char* text) {
    eprintf(EPF_WARN, "%s\n", text);
    suspendClient(text);
}

void HubClient::readIntoQueue(double curtime) {
    if (!m_responseQueue->readFromSocketThenWriteToQueue(getFd(), zkvnParser.get(), curtime)) {
        noteSignOfLife();
        if (!closeIfOutOfStep())
            holdReads();
        return;
    }
    leaveAfterReadFailure();
}

void HubClient::leaveAfterReadFailure() {
    if (getInitialHubDisconnected()) {
        eprintf(EPF_INFO, "First HUB is disconneted for LB; Dont requestHUBFromCM for this connection");
        return;
    }
    eprintf(EPF_WARN, "Queue full, drop, or other error, so must close Connection to HUB: %s\n",
            getHubAddr().c_str());
    m_session.noteHubDown(this);
    closeConnection();
    m_lookup.noteLoss();
}

void HubClient::noteSignOfLife() {
    if (m_responseQueue->takeSignOfLife())
        setHBSeen(true);
}

// A socket whose bytes are not taken would call for attention without end, and so would its hang-up, which
// can't be unwatched: the socket leaves the reactor. The supervisor finds a close.
void HubClient::holdReads() {
    const bool atEnd = m_responseQueue->sawEndOfStream();
    if (!atEnd && !m_responseQueue->readsSuspended())
        return;
    {
        const tp::MutexLock lock(m_huber_mutex);
        if (m_HUB_Event_Reactor == nullptr)
            return;
        m_HUB_Event_Reactor->unRegSocket(this);
        m_readsHeld = !atEnd;
        if (m_readsHeld)
            m_readWaker.listen(*m_HUB_Event_Reactor);
        else
            m_readWaker.leave(*m_HUB_Event_Reactor);
    }
    // The reader may have made room before it heard that somebody waits for it.
    if (m_readsHeld && !m_responseQueue->awaitRoom())
        retryHeldReads(tp::Clock::now());
}

void HubClient::continueHeldReads(double curtime) {
    calcQueueFullStats();
    if (m_readsHeld && isReady())
        retryHeldReads(curtime);
    if (isReady() && m_responseQueue->hasInputLeft() &&
        m_responseQueue->continueInflating(getFd(), zkvnParser.get(), curtime))
        leaveAfterReadFailure();
    noteSignOfLife();
    closeIfOutOfStep();
}

// Does the refused, or after a while forced, read in the event's place; ends the hold once the queue takes
// bytes again.
void HubClient::retryHeldReads(double curtime) {
    if (m_responseQueue->readsSuspended()) {
        pollfd watched{getFd(), POLLIN, 0};
        // What is left of a connection that has ended is not waited for: the supervisor closes it.
        if (::poll(&watched, 1, 0) > 0 && (watched.revents & (POLLHUP | POLLERR)) == 0) {
            setHBSeen(true); // silence can't be told while bytes are left where they are
            readIntoQueue(curtime);
        }
    }
    if (!m_readsHeld || m_responseQueue->readsSuspended())
        return;
    m_readsHeld = false;
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor == nullptr)
        return;
    m_readWaker.leave(*m_HUB_Event_Reactor);
    m_HUB_Event_Reactor->regSocket(this, getFd());
    m_HUB_Event_Reactor->watchReads(this);
}

void HubClient::twentyFiveMsTick(double now) {
    m_handshake.tick();
    if (m_messagesLeft)
        pullCompressed(false);
    continueHeldReads(now);
}

void HubClient::socketClosedByPeer() {
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_INFO,
            "=== Socket Close Detected on Read - Connection will be Reset ===; fd=%d", getFd());
    closeConnection();
}

void HubClient::readCompressed() {
    size_t room = 0;
    const int64_t got = zkvnParser->push(getFd(), &room);
    const int error = errno;
    // Without room there was no read.
    const bool inputFull = room == 0;
    if (got == 0) {
        socketClosedByPeer();
        return;
    }
    if (got < 0 && !isNoError(error)) {
        eprintf(EPF_WARN, "KVNAPI::StreamParser error: %s", lastParserError().c_str());
        socketClosedByPeer();
        return;
    }
    pullCompressed(inputFull);
}

void HubClient::pullCompressed(bool inputFull) {
    m_messagesLeft = false;
    int taken = 0;
    while (getFd() >= 0) {
        if (isReady()) {
            settleStream();
            return;
        }
        if (taken == kMaxMessages) {
            m_messagesLeft = true;
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
            suspendClient("Error decompressing/parsing response from HUB: " + text);
            return;
        }
        m_handshake.take(message);
    }
    if (inputFull && taken == 0)
        suspendClient("Error decompressing/parsing response from HUB: Block too large");
}

// What came with the last answer of the conversation is dropped, but it has to be inflated: the queue's first
// read goes on behind it. From here on a fault costs the connection and not the hub.
void HubClient::settleStream() {
    std::vector<char> dropped(kParserBufferSize);
    for (;;) {
        KVNAPI::bufref out(dropped.data(), dropped.size());
        if (zkvnParser->pull(&out) != 0) {
            eprintf(EPF_WARN, "HubClient::readableEvent pull error: %s", lastParserError().c_str());
            leaveAfterReadFailure();
            return;
        }
        if (out.len < dropped.size())
            return;
    }
}

void HubClient::readFramed() {
    const int got = framer->push(getFd());
    if (got < 0) {
        if (isNoError(errno))
            return;
        eprintf(EPF_WARN, "KVNAPI::Framer error: rc=%d", errno);
    }
    if (got <= 0) {
        socketClosedByPeer();
        return;
    }
    while (getFd() >= 0) {
        KVNAPI::bufref frame;
        const int rc = framer->pull(&frame);
        if (rc > 0)
            return;
        if (rc < 0) {
            const std::string text = lastParserError();
            eprintf(EPF_WARN, "KVNAPI::Framer error: %s", text.c_str());
            suspendClient("Error framing response from HUB: " + text);
            return;
        }
        process_kvn_buffer(frame);
        if (isReady()) {
            handOverUnconsumed();
            return;
        }
    }
}

void HubClient::process_kvn_buffer(KVNAPI::bufref frame) {
    if (kvnParser == nullptr) {
        eprintf(EPF_WARN, "HubClient::process_kvn_buffer- no parser_");
        return;
    }
    kvnParser->push(frame);
    while (getFd() >= 0) {
        KVNAPI::Message message;
        const int rc = kvnParser->pull(&message);
        if (rc > 0)
            return;
        if (rc == 0) {
            m_handshake.take(message);
            continue;
        }
        const std::string text = lastParserError();
        eprintf(EPF_WARN, "HubClient::process_kvn_buffer pull error: %s", text.c_str());
        if (isReady())
            m_responseQueue->printStats(false, false, 0.0);
        suspendClient("Error parsing response from HUB: " + text);
    }
}

// Bytes that came with the last answer of the conversation are the first of the stream.
void HubClient::handOverUnconsumed() {
    std::vector<char> rest(kParserBufferSize);
    const int count = framer->moveRemaining(KVNAPI::bufref(rest.data(), rest.size()));
    framer->reset();
    if (count > 0 && m_responseQueue->takeOver(KVNAPI::bufref(rest.data(), static_cast<size_t>(count))))
        leaveAfterReadFailure();
}

} // namespace tivra_internal
