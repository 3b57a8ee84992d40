// The same frames through a NATS server, whose subscriber looks into none.
#include "RoadNats.h"

#include "Road.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <nats/nats.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tivra_bench {
namespace {

constexpr const char* kSubject = "day";

void check(natsStatus status, const char* what) {
    if (status != NATS_OK)
        throw std::runtime_error(std::string(what) + ": " + natsStatus_GetText(status));
}

std::uint16_t freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const bool isBound = bind(fd, reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
                         getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    close(fd);
    if (!isBound)
        throw std::runtime_error("no port for NATS");
    return ntohs(address.sin_port);
}

/// The server, which ends with the process that made it.
class NatsServer {
public:
    explicit NatsServer(std::uint16_t port) {
        const std::string portText = std::to_string(port);
        m_pid = fork();
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
            dup2(nowhere, STDERR_FILENO);
            execl(TIVRA_NATS_SERVER, "nats-server", "--addr", "127.0.0.1", "--port", portText.c_str(),
                  nullptr);
            _exit(1);
        }
        if (m_pid < 0)
            throw std::runtime_error("no process for the NATS server");
    }
    ~NatsServer() {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    NatsServer(const NatsServer&) = delete;
    NatsServer& operator=(const NatsServer&) = delete;

private:
    pid_t m_pid;
};

class NatsConnection {
public:
    explicit NatsConnection(std::uint16_t port) {
        const std::string url = "nats://127.0.0.1:" + std::to_string(port);
        natsStatus status = NATS_NO_SERVER;
        for (int tries = 0; status != NATS_OK && tries < 500; ++tries) {
            status = natsConnection_ConnectTo(&m_connection, url.c_str());
            if (status != NATS_OK)
                std::this_thread::sleep_for(std::chrono::milliseconds(10)); // the server may still start
        }
        check(status, "NATS does not connect");
    }
    ~NatsConnection() {
        natsSubscription_Destroy(m_subscription);
        natsConnection_Destroy(m_connection);
    }
    NatsConnection(const NatsConnection&) = delete;
    NatsConnection& operator=(const NatsConnection&) = delete;

    void publish(const std::string& frame) {
        check(natsConnection_Publish(m_connection, kSubject, frame.data(), static_cast<int>(frame.size())),
              "NATS does not publish");
    }
    void flush() { check(natsConnection_Flush(m_connection), "NATS does not flush"); }
    void subscribe(natsMsgHandler handler, void* closure) {
        check(natsConnection_Subscribe(&m_subscription, m_connection, kSubject, handler, closure),
              "NATS does not subscribe");
        check(natsSubscription_SetPendingLimits(m_subscription, -1, -1), "NATS keeps its limits");
        flush();
    }

private:
    natsConnection* m_connection = nullptr;
    natsSubscription* m_subscription = nullptr;
};

class NatsReader {
public:
    explicit NatsReader(const RoadTask& task) : m_progress(task) {}

    static void take(natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
        static_cast<NatsReader*>(closure)->takeOne();
        natsMsg_Destroy(message);
    }
    RoadRun wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_done.wait_for(lock, std::chrono::seconds(60), [this] { return m_finished; }))
            throw std::runtime_error("NATS carried only " + std::to_string(m_progress.countInPass()));
        return m_progress.run();
    }

private:
    void takeOne() {
        if (!m_progress.count())
            return;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_finished = true;
        m_done.notify_all();
    }

    RoadProgress m_progress;
    std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_finished = false;
};

} // namespace

void servePublisher(const RoadLoad& load, const ChildProcess::Ends& parent) {
    const std::uint16_t port = freePort();
    const NatsServer server(port);
    NatsConnection connection(port);
    const std::vector<std::string> frames = framesOfDay(load.events);
    if (!writeAll(parent.tell, &port, sizeof port))
        return;
    char byte = 0;
    while (read(parent.control, &byte, 1) > 0) {
        for (unsigned round = 0; round < load.repeat; ++round)
            for (const std::string& frame : frames)
                connection.publish(frame);
        connection.flush();
    }
}

RoadRun runNats(const RoadTask& task) {
    NatsReader reader(task);
    NatsConnection connection(task.hub.port());
    connection.subscribe(&NatsReader::take, &reader);
    task.hub.playAgain();
    return reader.wait();
}

} // namespace tivra_bench
