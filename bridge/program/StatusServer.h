#pragma once

#include "run/Bridge.h"

#include "common/PageProtection.h"

#include <feed/Feed.h>

#include <memory>
#include <string>

namespace tivra_tools {
class PageServer;
} // namespace tivra_tools

namespace tivra_bus {

/// Serves what a bridge is doing: /metrics, /health and /stats.json.
class StatusServer {
public:
    /// Bridge and feed have to stay. Throws UsageError when it can't listen, or when this program was built
    /// without the library for it.
    StatusServer(const std::string& address, const tivra_tools::PageProtection& protection,
                 const Bridge& bridge, const tivra::Feed& feed);
    ~StatusServer();

    [[nodiscard]] const std::string& address() const;

private:
    std::unique_ptr<tivra_tools::PageServer> m_server;
};

} // namespace tivra_bus
