#include "StatisticsServer.h"

#include "ExitCode.h"

#include "common/PageServer.h"
#include "common/UsageError.h"

#include <stdexcept>

namespace tivra_cat {

namespace {

tivra_tools::Page pageAt(const SessionWatch& watch, std::string_view path) {
    const bool wantsMetrics = path == "/metrics";
    tivra_tools::Page page;
    if (!wantsMetrics && path != "/stats.json") {
        page.status = 404;
        page.text = "There are /metrics and /stats.json.\n";
        return page;
    }
    page.text = watch.machineStatistics(wantsMetrics ? StatisticsForm::OpenMetrics : StatisticsForm::Json);
    if (page.text.empty()) {
        page.status = 503;
        page.text = "There are no statistics yet.\n";
        return page;
    }
    page.type =
        wantsMetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8" : "application/json";
    return page;
}

} // namespace

StatisticsServer::StatisticsServer(const std::string& address, const tivra_tools::PageProtection& protection,
                                   const SessionWatch& watch) {
    try {
        m_server = std::make_unique<tivra_tools::PageServer>(
            address, protection, [&watch](std::string_view path) { return pageAt(watch, path); });
    } catch (const tivra_tools::UsageError&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw Failure(ExitCode::OutputFailed, error.what());
    }
}

StatisticsServer::~StatisticsServer() = default;

const std::string& StatisticsServer::address() const {
    return m_server->address();
}

} // namespace tivra_cat
