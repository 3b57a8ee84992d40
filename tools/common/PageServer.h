#pragma once

#include "common/PageProtection.h"

#include <functional>
#include <string>
#include <string_view>

struct MHD_Daemon;

namespace tivra_tools {

/// What is served at a path.
struct Page {
    unsigned status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::string text;
};

/// Serves a few pages over HTTP or HTTPS. One thread of its own serves a few connections at a time, and a
/// slow one holds up none of the others.
class PageServer {
public:
    /// The page at a path; its status is 404 where there is none. Called on the server's thread, and may
    /// throw.
    using Pages = std::function<Page(std::string_view path)>;

    /// Listens at "IPv4 address:port", with port 0 at a free one. Throws std::runtime_error when it can't,
    /// and UsageError for files of the protection that can't be used.
    PageServer(const std::string& address, const PageProtection& protection, Pages pages);
    /// Closes all connections, whatever they wait for.
    ~PageServer();
    PageServer(const PageServer&) = delete;
    PageServer& operator=(const PageServer&) = delete;

    /// Where it listens.
    [[nodiscard]] const std::string& address() const { return m_address; }

private:
    friend struct PageRequest;

    std::string m_address;
    Pages m_pages;
    std::string m_authorization; ///< that a request has to have, as its header says it; empty for none
    MHD_Daemon* m_daemon = nullptr;
};

} // namespace tivra_tools
