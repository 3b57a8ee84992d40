#include "EventServer.h"

#include "Assets.h"
#include "ExitCode.h"

#include "common/Listener.h"

#include <fmt/format.h>

#include <microhttpd.h>

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>

namespace tivra_top {

namespace {

constexpr unsigned kMostConnections = 96;
constexpr std::size_t kMostViewers = 32;
constexpr std::size_t kConnectionMemory = 16384;
/// Also how long a browser that takes nothing keeps its connection.
constexpr unsigned kIdleSeconds = 10;
/// A browser that is so many events late is given up.
constexpr std::size_t kMostWaiting = 16;
/// Pictures without a change after which a comment is sent, which shows whether the browser is still there.
constexpr unsigned kMostQuiet = 20;
constexpr std::size_t kBlock = 32768;

constexpr const char* kPlain = "text/plain; charset=utf-8";
constexpr const char* kJson = "application/json";

std::int64_t onRead(void* viewer, std::uint64_t, char* buffer, std::size_t room) {
    auto& reading = *static_cast<EventServer::Viewer*>(viewer);
    return reading.server->read(reading, buffer, room);
}

/// Ends a stream's viewer, whatever ended the connection.
void onCompleted(void* server, MHD_Connection*, void** viewer, MHD_RequestTerminationCode cause) {
    if (*viewer != nullptr)
        static_cast<EventServer*>(server)->leave(static_cast<EventServer::Viewer*>(*viewer),
                                                 cause == MHD_REQUEST_TERMINATED_TIMEOUT_REACHED);
    *viewer = nullptr;
}

void addHeaders(MHD_Response* response, const std::string& type) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type.c_str());
    MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    MHD_add_response_header(response, "Content-Security-Policy", "default-src 'self'");
    MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
}

MHD_Result queue(MHD_Connection* connection, unsigned status, MHD_Response* response,
                 const std::string& type) {
    if (response == nullptr)
        return MHD_NO;
    addHeaders(response, type);
    const MHD_Result result = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return result;
}

MHD_Result send(MHD_Connection* connection, const EventServer::Reply& reply) {
    return queue(connection, reply.status,
                 MHD_create_response_from_buffer(reply.text.size(), const_cast<char*>(reply.text.data()),
                                                 MHD_RESPMEM_MUST_COPY),
                 reply.type);
}

/// A name that somebody has pointed at this machine would let any page of the browser read the data.
bool isHostAllowed(const char* host) {
    std::string name = host == nullptr ? "" : host;
    name.resize(std::min(name.size(), name.rfind(':')));
    in_addr address{};
    return name == "localhost" || inet_pton(AF_INET, name.c_str(), &address) == 1;
}

MHD_Result stream(MHD_Connection* connection, EventServer& server, void** context) {
    EventServer::Viewer* const viewer = server.join(connection);
    if (viewer == nullptr)
        return send(connection,
                    {MHD_HTTP_SERVICE_UNAVAILABLE, kPlain, "As many as may look do so already.\n"});
    *context = viewer;
    return queue(connection, MHD_HTTP_OK,
                 MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kBlock, onRead, viewer, nullptr),
                 "text/event-stream");
}

MHD_Result onRequest(void* asked, MHD_Connection* connection, const char* path, const char* method,
                     const char*, const char*, std::size_t*, void** context) {
    EventServer& server = *static_cast<EventServer*>(asked);
    try {
        if (std::string_view(method) != MHD_HTTP_METHOD_GET)
            return send(connection, {MHD_HTTP_METHOD_NOT_ALLOWED, kPlain, "Only GET is understood.\n"});
        if (!isHostAllowed(MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_HOST)))
            return send(connection,
                        {MHD_HTTP_FORBIDDEN, kPlain, "Ask for localhost, or for an address in numbers.\n"});
        if (std::string_view(path) == "/events")
            return stream(connection, server, context);
        return send(connection, server.reply(path, MHD_lookup_connection_value(
                                                       connection, MHD_GET_ARGUMENT_KIND, "name")));
    } catch (const std::exception&) { // no memory, and no exception may pass through the library
        return MHD_NO;
    }
}

} // namespace

EventServer::EventServer(const std::string& address) : m_address(address) {
    int fd = -1;
    try {
        fd = tivra_tools::listenAt(m_address, static_cast<int>(kMostConnections));
    } catch (const std::system_error& error) {
        throw Failure(ExitCode::OutputFailed, fmt::format("cannot serve the page at {}: {}", address,
                                                          std::strerror(error.code().value())));
    }
    m_daemon = MHD_start_daemon(
        MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr,
        onRequest, this, MHD_OPTION_LISTEN_SOCKET, fd, MHD_OPTION_CONNECTION_LIMIT, kMostConnections,
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory, MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds,
        MHD_OPTION_NOTIFY_COMPLETED, onCompleted, this, MHD_OPTION_END);
    if (m_daemon == nullptr) {
        const int error = errno;
        close(fd);
        throw Failure(ExitCode::OutputFailed,
                      fmt::format("cannot serve the page at {}: {}", address, std::strerror(error)));
    }
}

EventServer::~EventServer() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isClosing = true;
        for (const std::unique_ptr<Viewer>& viewer : m_viewers)
            wake(*viewer);
    }
    MHD_stop_daemon(m_daemon);
}

void EventServer::publish(Picture picture) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string text = m_feed.next(std::move(picture));
    m_quiet = text.empty() ? m_quiet + 1 : 0;
    if (text.empty() && m_quiet < kMostQuiet)
        return;
    m_quiet = 0;
    const auto event = std::make_shared<const std::string>(
        text.empty() ? std::string(": nothing new\n\n") : fmt::format("event: change\ndata: {}\n\n", text));
    for (const std::unique_ptr<Viewer>& viewer : m_viewers)
        push(*viewer, event);
}

std::uint64_t EventServer::viewers() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_joined;
}

std::uint64_t EventServer::dropped() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_dropped;
}

EventServer::Reply EventServer::reply(const std::string& path, const char* symbol) const {
    if (path == "/symbol") {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return {MHD_HTTP_OK, kJson, m_feed.symbol(symbol == nullptr ? "" : symbol)};
    }
    for (const Asset& asset : assets())
        if (path == asset.path)
            return {MHD_HTTP_OK, asset.type,
                    std::string(reinterpret_cast<const char*>(asset.bytes), asset.size)};
    return {MHD_HTTP_NOT_FOUND, kPlain, "There is the page at /, and nothing else for people.\n"};
}

EventServer::Viewer* EventServer::join(MHD_Connection* connection) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isClosing || m_viewers.size() >= kMostViewers)
        return nullptr;
    m_viewers.push_back(std::make_unique<Viewer>());
    Viewer& viewer = *m_viewers.back();
    viewer.server = this;
    viewer.connection = connection;
    viewer.waiting.push_back(
        std::make_shared<const std::string>(fmt::format("event: all\ndata: {}\n\n", m_feed.everything())));
    ++m_joined;
    return &viewer;
}

void EventServer::leave(Viewer* viewer, bool isStuck) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    // A connection that took nothing for so long may end before events have piled up for it.
    m_dropped += isStuck && !viewer->isDropped ? 1 : 0;
    m_viewers.erase(std::remove_if(m_viewers.begin(), m_viewers.end(),
                                   [viewer](const auto& each) { return each.get() == viewer; }),
                    m_viewers.end());
}

void EventServer::push(Viewer& viewer, const std::shared_ptr<const std::string>& event) {
    if (viewer.isDropped)
        return;
    if (viewer.waiting.size() >= kMostWaiting) {
        viewer.isDropped = true;
        ++m_dropped;
    } else {
        viewer.waiting.push_back(event);
    }
    wake(viewer);
}

void EventServer::wake(Viewer& viewer) {
    if (!viewer.isSuspended)
        return;
    viewer.isSuspended = false;
    MHD_resume_connection(viewer.connection);
}

std::int64_t EventServer::read(Viewer& viewer, char* buffer, std::size_t room) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isClosing || viewer.isDropped)
        return MHD_CONTENT_READER_END_OF_STREAM;
    if (viewer.waiting.empty()) {
        viewer.isSuspended = true;
        MHD_suspend_connection(viewer.connection);
        return 0;
    }
    const std::string& text = *viewer.waiting.front();
    const std::size_t count = std::min(room, text.size() - viewer.sent);
    std::memcpy(buffer, text.data() + viewer.sent, count);
    viewer.sent += count;
    if (viewer.sent == text.size()) {
        viewer.waiting.pop_front();
        viewer.sent = 0;
    }
    return static_cast<std::int64_t>(count);
}

} // namespace tivra_top
