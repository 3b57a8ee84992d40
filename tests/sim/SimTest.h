#pragma once

#include <gmock/gmock.h>

#include <utility>

#include <tivra_testkit/RawClient.h>

using tivra_testkit::RawClient;

/// A hub that serves.
struct StartedHub : tivra_sim::Hub {
    explicit StartedHub(tivra_sim::HubConfig config = tivra_sim::HubConfig::quiet())
        : Hub(std::move(config)) {
        start();
    }
};

/// A client whose login was granted.
struct LoggedIn : RawClient {
    explicit LoggedIn(const tivra_sim::Hub& hub, bool isCompressed = false) : RawClient(hub) {
        logIn(isCompressed);
    }
};
