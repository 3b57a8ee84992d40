// The same frames through a PUSH and a PULL socket of ZeroMQ, which carries them and looks into none.
#include "RoadZmq.h"

#include "Road.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>
#include <zmq.h>

namespace tivra_bench {
namespace {

[[noreturn]] void fail(const char* what) {
    throw std::runtime_error(std::string(what) + ": " + zmq_strerror(zmq_errno()));
}

/// One socket and the context with its I/O thread.
class ZmqSocket {
public:
    explicit ZmqSocket(int type) : m_context(zmq_ctx_new()), m_socket(zmq_socket(m_context, type)) {
        if (m_socket == nullptr)
            fail("no ZeroMQ socket");
    }
    ~ZmqSocket() {
        const int none = 0;
        zmq_setsockopt(m_socket, ZMQ_LINGER, &none, sizeof none);
        zmq_close(m_socket);
        zmq_ctx_term(m_context);
    }
    ZmqSocket(const ZmqSocket&) = delete;
    ZmqSocket& operator=(const ZmqSocket&) = delete;

    [[nodiscard]] std::uint16_t bind() {
        if (zmq_bind(m_socket, "tcp://127.0.0.1:*") != 0)
            fail("no port for ZeroMQ");
        char endpoint[128];
        std::size_t size = sizeof endpoint;
        if (zmq_getsockopt(m_socket, ZMQ_LAST_ENDPOINT, endpoint, &size) != 0)
            fail("no endpoint of ZeroMQ");
        const std::string text(endpoint);
        return static_cast<std::uint16_t>(std::atoi(text.c_str() + text.rfind(':') + 1));
    }
    void connect(std::uint16_t port) {
        const std::string endpoint = "tcp://127.0.0.1:" + std::to_string(port);
        if (zmq_connect(m_socket, endpoint.c_str()) != 0)
            fail("ZeroMQ does not connect");
    }
    void send(const std::string& frame) {
        if (zmq_send(m_socket, frame.data(), frame.size(), 0) < 0)
            fail("ZeroMQ does not send");
    }
    void receive(zmq_msg_t& message) {
        if (zmq_msg_recv(&message, m_socket, 0) < 0)
            fail("ZeroMQ does not receive");
    }

private:
    void* m_context;
    void* m_socket;
};

} // namespace

void servePush(const RoadLoad& load, const ChildProcess::Ends& parent) {
    ZmqSocket socket(ZMQ_PUSH);
    const std::vector<std::string> frames = framesOfDay(load.events);
    const std::uint16_t port = socket.bind();
    if (!writeAll(parent.tell, &port, sizeof port))
        return;
    // A PUSH socket waits for its first peer.
    char byte = 0;
    do {
        for (unsigned round = 0; round < load.repeat; ++round)
            for (const std::string& frame : frames)
                socket.send(frame);
        sendPaced(load, [&socket] { socket.send(stampedFrame()); });
    } while (read(parent.control, &byte, 1) > 0);
}

RoadRun runZmq(const RoadTask& task) {
    ZmqSocket socket(ZMQ_PULL);
    socket.connect(task.hub.port());
    RoadProgress progress(task);
    zmq_msg_t message;
    zmq_msg_init(&message);
    bool isDone = false;
    while (!isDone) {
        socket.receive(message);
        if (task.paced)
            progress.addLatency(nowNanoseconds() - stampOf(static_cast<const char*>(zmq_msg_data(&message)),
                                                           zmq_msg_size(&message)));
        isDone = progress.count();
    }
    zmq_msg_close(&message);
    return progress.run();
}

} // namespace tivra_bench
