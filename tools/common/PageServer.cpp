#include "common/PageServer.h"

#include "common/Listener.h"
#include "common/Password.h"
#include "common/UsageError.h"

#include <fmt/format.h>

#include <microhttpd.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace tivra_tools {

namespace {

constexpr unsigned kMaxConnections = 16;
/// A request has to fit in with its headers, and its answer is beside it.
constexpr std::size_t kConnectionMemory = 16384;
constexpr unsigned kIdleSeconds = 10;
/// As for connections to hubs: what came before 1.2 is broken.
constexpr const char* kVersions = "NORMAL:-VERS-ALL:+VERS-TLS1.2:+VERS-TLS1.3";

[[noreturn]] void fail(const std::string& address, int error) {
    throw std::runtime_error(fmt::format("cannot serve statistics at {}: {}", address, std::strerror(error)));
}

std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file || text.empty())
        throw UsageError(fmt::format("nothing can be read from \"{}\"", path));
    return text;
}

/// Takes as long for a token that is nearly right as for any other.
bool isSame(std::string_view expected, std::string_view given) {
    unsigned difference = expected.size() == given.size() ? 0 : 1;
    for (std::size_t i = 0; i < expected.size(); ++i)
        difference |= static_cast<unsigned char>(expected[i] ^ (i < given.size() ? given[i] : '\0'));
    return difference == 0;
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
    if (page.status == MHD_HTTP_UNAUTHORIZED)
        MHD_add_response_header(response, MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Bearer");
    if (page.status == MHD_HTTP_METHOD_NOT_ALLOWED)
        MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    const MHD_Result result = MHD_queue_response(connection, page.status, response);
    MHD_destroy_response(response);
    return result;
}

} // namespace

/// What the library for HTTP calls.
struct PageRequest {
    /// Answers at once, also where a body would follow: the connection is closed then.
    static MHD_Result answer(void* server, MHD_Connection* connection, const char* path, const char* method,
                             const char*, const char*, std::size_t*, void**) {
        const PageServer& self = *static_cast<const PageServer*>(server);
        try {
            return send(connection, isAllowed(self, connection) ? pageFor(self.m_pages, method, path)
                                                                : Page{MHD_HTTP_UNAUTHORIZED, Page().type,
                                                                       "A bearer token is wanted.\n"});
        } catch (const std::exception&) { // no memory, and no exception may pass through the library
            return MHD_NO;
        }
    }

private:
    static bool isAllowed(const PageServer& server, MHD_Connection* connection) {
        if (server.m_authorization.empty())
            return true;
        const char* const given =
            MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_AUTHORIZATION);
        return given != nullptr && isSame(server.m_authorization, given);
    }
};

PageServer::PageServer(const std::string& address, const PageProtection& protection, Pages pages)
    : m_address(address), m_pages(std::move(pages)) {
    if (!protection.tokenFile.empty())
        m_authorization = "Bearer " + readToken(protection.tokenFile);
    std::string certificate;
    std::string key;
    // Without a channel of its own the thread is woken by its listening socket, which it doesn't look at
    // while there are as many connections as may be, so that the end would wait for the first that idles for
    // too long.
    unsigned flags = MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ITC;
    std::vector<MHD_OptionItem> more;
    if (!protection.certificateFile.empty()) {
        certificate = contentsOf(protection.certificateFile);
        key = protection.keyFile.empty() ? certificate : contentsOf(protection.keyFile);
        flags |= MHD_USE_TLS;
        more = {{MHD_OPTION_HTTPS_MEM_CERT, 0, certificate.data()},
                {MHD_OPTION_HTTPS_MEM_KEY, 0, key.data()},
                {MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(kVersions)}};
    }
    more.push_back({MHD_OPTION_END, 0, nullptr});
    int fd = -1;
    try {
        fd = listenAt(m_address, static_cast<int>(kMaxConnections));
    } catch (const std::system_error& error) {
        fail(address, error.code().value());
    }
    m_daemon = MHD_start_daemon(
        flags, 0, nullptr, nullptr, PageRequest::answer, this, MHD_OPTION_LISTEN_SOCKET, fd,
        MHD_OPTION_CONNECTION_LIMIT, kMaxConnections, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory,
        MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, MHD_OPTION_ARRAY, more.data(), MHD_OPTION_END);
    if (m_daemon != nullptr)
        return;
    const int error = errno;
    close(fd);
    if (!certificate.empty())
        throw UsageError(fmt::format("no statistics can be served over HTTPS with the certificate \"{}\": it "
                                     "or its key isn't one, or libmicrohttpd has no TLS",
                                     protection.certificateFile));
    fail(m_address, error);
}

PageServer::~PageServer() {
    MHD_stop_daemon(m_daemon);
}

} // namespace tivra_tools
