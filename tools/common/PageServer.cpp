#include "common/PageServer.h"

#include "common/Listener.h"

#include <fmt/format.h>

#include <microhttpd.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace tivra_tools {

namespace {

constexpr unsigned kMaxConnections = 16;
/// A request has to fit in with its headers, and its answer is beside it.
constexpr std::size_t kConnectionMemory = 16384;
constexpr unsigned kIdleSeconds = 10;

[[noreturn]] void fail(const std::string& address, int error) {
    throw std::runtime_error(fmt::format("cannot serve statistics at {}: {}", address, std::strerror(error)));
}

Page pageFor(const PageServer::Pages& pages, std::string_view method, std::string_view path) {
    Page page = pages(path);
    if (page.status != MHD_HTTP_NOT_FOUND && method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD)
        page = {MHD_HTTP_METHOD_NOT_ALLOWED, Page().type, "Only GET and HEAD are understood.\n"};
    return page;
}

MHD_Result send(MHD_Connection* connection, const Page& page) {
    MHD_Response* const response = MHD_create_response_from_buffer(
        page.text.size(), const_cast<char*>(page.text.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr)
        return MHD_NO;
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, page.type.c_str());
    if (page.status == MHD_HTTP_METHOD_NOT_ALLOWED)
        MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    const MHD_Result result = MHD_queue_response(connection, page.status, response);
    MHD_destroy_response(response);
    return result;
}

/// Answers at once, also where a body would follow: the connection is closed then.
MHD_Result onRequest(void* pages, MHD_Connection* connection, const char* path, const char* method,
                     const char*, const char*, std::size_t*, void**) {
    try {
        return send(connection, pageFor(*static_cast<const PageServer::Pages*>(pages), method, path));
    } catch (const std::exception&) { // no memory, and no exception may pass through the library
        return MHD_NO;
    }
}

} // namespace

PageServer::PageServer(const std::string& address, Pages pages)
    : m_address(address), m_pages(std::move(pages)) {
    int fd = -1;
    try {
        fd = listenAt(m_address, static_cast<int>(kMaxConnections));
    } catch (const std::system_error& error) {
        fail(address, error.code().value());
    }
    m_daemon =
        MHD_start_daemon(MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD, 0, nullptr, nullptr, onRequest,
                         &m_pages, MHD_OPTION_LISTEN_SOCKET, fd, MHD_OPTION_CONNECTION_LIMIT, kMaxConnections,
                         MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory, MHD_OPTION_CONNECTION_TIMEOUT,
                         kIdleSeconds, MHD_OPTION_END);
    if (m_daemon == nullptr) {
        const int error = errno;
        close(fd);
        fail(m_address, error);
    }
}

PageServer::~PageServer() {
    MHD_stop_daemon(m_daemon);
}

} // namespace tivra_tools
