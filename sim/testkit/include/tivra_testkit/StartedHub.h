#pragma once

#include <utility>

#include <tivra_sim/Hub.h>

namespace tivra_testkit {

/// A hub that serves from its construction on.
struct StartedHub : tivra_sim::Hub {
    explicit StartedHub(tivra_sim::HubConfig configuration = tivra_sim::HubConfig::realistic())
        : Hub(std::move(configuration)) {
        start();
    }
};

} // namespace tivra_testkit
