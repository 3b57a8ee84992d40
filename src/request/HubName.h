#pragma once

#include <string>

namespace tivra_internal {

/// What a hub's watchlist needs of its hub for log lines. @thread any
class HubName {
public:
    virtual ~HubName() = default;

    [[nodiscard]] virtual std::string getHubAddr() const = 0;
};

} // namespace tivra_internal
