#pragma once

#include "RawClient.h"

#include <gmock/gmock.h>

#include <utility>

/// A hub that serves.
struct StartedHub : tivra_sim::Hub {
    explicit StartedHub(tivra_sim::HubConfig config = quietConfig()) : Hub(std::move(config)) { start(); }
};

/// A client whose login was granted.
struct LoggedIn : RawClient {
    explicit LoggedIn(const tivra_sim::Hub& hub, bool isCompressed = false) : RawClient(hub) {
        logIn(isCompressed);
    }
};
