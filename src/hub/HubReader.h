#pragma once

#include <memory>

#include "kvnparse/bufref.h"

namespace KVNAPI {
class Parser;
class StreamFramer;
class StreamParser;
} // namespace KVNAPI

namespace tivra_internal {

class Handshake;
class HubHeartbeat;
class HubReaderPort;
class HubSocket;
class MetaTokenMap;
class Queue;
class ReactorRegistration;

/// Reads what a hub sends: message by message for the handshake, straight into the queue once the hub is
/// ready. It owns framer and parsers, and holds reads for as long as the queue refuses them. @thread hub
class HubReader {
public:
    HubReader(HubReaderPort& port, const HubSocket& socket, ReactorRegistration& registration,
              Handshake& handshake, HubHeartbeat& heartbeat, MetaTokenMap& dictionary, Queue& queue,
              bool compression);
    ~HubReader();
    HubReader(const HubReader&) = delete;
    HubReader& operator=(const HubReader&) = delete;

    /// Bytes have come, or the peer has closed.
    void read(double curtime);
    /// The first event of a connection; false when a parser can't be had, which has closed it.
    bool prepare();
    /// Messages that were left over at the last read, and bytes that the socket doesn't show any more.
    void readLeftOver(double curtime);
    /// Goes on with what has waited for space in the queue.
    void continueHeldReads(double curtime);
    /// Bytes are left where they are until the queue takes more.
    [[nodiscard]] bool holdsReads() const { return m_phase == Phase::Held; }
    /// The peer has closed the connection and had sent no message.
    [[nodiscard]] bool isClosedUnheard() const { return m_isClosedByPeer && !m_hasHeard; }
    /// The connection is closed.
    void forget();

private:
    enum class Phase {
        Fresh,        ///< no event has been seen since the connect
        Open,         ///< what comes is read
        MessagesLeft, ///< what has been read holds more than was taken at one go
        Held          ///< the socket is out of the reactor: the queue refuses reads
    };

    [[nodiscard]] bool prepareParsers();
    void readOnce(double curtime);
    [[nodiscard]] bool isMoreAtHand() const;
    void readMore(double curtime);
    void awaitRest();
    void readIntoQueue(double curtime);
    void noteSignOfLife();
    void holdReads();
    void retryHeldReads(double curtime);
    void readCompressed();
    void pullCompressed(bool inputFull);
    void settleStream();
    void readFramed();
    void closedByPeer();
    void takeFrame(KVNAPI::bufref frame);
    void handOverUnconsumed();

    HubReaderPort& m_port;
    const HubSocket& m_socket;
    ReactorRegistration& m_registration;
    Handshake& m_handshake;
    HubHeartbeat& m_heartbeat;
    MetaTokenMap& m_dicMetaMap;
    Queue& m_responseQueue;
    const bool m_compression;

    Phase m_phase = Phase::Fresh;
    bool m_hasHeard = false;
    bool m_isClosedByPeer = false;
    std::unique_ptr<KVNAPI::StreamFramer> framer;
    std::unique_ptr<KVNAPI::Parser> kvnParser;
    std::unique_ptr<KVNAPI::StreamParser> zkvnParser;
};

} // namespace tivra_internal
