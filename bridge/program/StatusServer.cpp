#include "program/StatusServer.h"

#include "run/BridgeMetrics.h"

#include "common/PageServer.h"
#include "common/UsageError.h"

#include <stdexcept>

namespace tivra_bus {

namespace {

constexpr std::string_view kEnd = "# EOF\n";

tivra_tools::Page pageAt(const Bridge& bridge, const tivra::Feed& feed, std::string_view path) {
    tivra_tools::Page page;
    if (path == "/metrics") {
        page.type = "application/openmetrics-text; version=1.0.0; charset=utf-8";
        page.text = feed.openMetrics();
        if (page.text.ends_with(kEnd))
            page.text.resize(page.text.size() - kEnd.size());
        page.text += bridgeMetrics(bridge);
        page.text += kEnd;
    } else if (path == "/health") {
        page.type = "application/json";
        page.text = bridgeHealth(bridge);
        page.status = isHealthy(bridge.status()) ? 200 : 503;
    } else if (path == "/stats.json") {
        page.type = "application/json";
        page.text = feed.statisticsText();
    } else {
        page.status = 404;
        page.text = "There are /metrics, /health and /stats.json.\n";
    }
    return page;
}

} // namespace

StatusServer::StatusServer(const std::string& address, const tivra_tools::PageProtection& protection,
                           const Bridge& bridge, const tivra::Feed& feed) {
    try {
        m_server = std::make_unique<tivra_tools::PageServer>(
            address, protection,
            [&bridge, &feed](std::string_view path) { return pageAt(bridge, feed, path); });
    } catch (const std::runtime_error& error) {
        throw tivra_tools::UsageError(error.what());
    }
}

StatusServer::~StatusServer() = default;

const std::string& StatusServer::address() const {
    return m_server->address();
}

} // namespace tivra_bus
