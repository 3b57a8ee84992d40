#pragma once

#include "SessionWatch.h"

#include "common/PageProtection.h"

#include <memory>
#include <string>

namespace tivra_tools {
class PageServer;
} // namespace tivra_tools

namespace tivra_cat {

/// Serves the last statistics over HTTP, /metrics in the OpenMetrics form and /stats.json as JSON. One thread
/// of its own serves a few connections at a time, and a slow one holds up none of the others.
class StatisticsServer {
public:
    /// Listens at "IPv4 address:port", with port 0 at a free one. Throws Failure when it can't, or when this
    /// program was built without the library for it.
    StatisticsServer(const std::string& address, const tivra_tools::PageProtection& protection,
                     const SessionWatch& watch);
    /// Closes all connections, whatever they wait for.
    ~StatisticsServer();
    StatisticsServer(const StatisticsServer&) = delete;
    StatisticsServer& operator=(const StatisticsServer&) = delete;

    /// Where it listens.
    [[nodiscard]] const std::string& address() const;

private:
    std::unique_ptr<tivra_tools::PageServer> m_server;
};

} // namespace tivra_cat
