#pragma once

#include <set>
#include <utility>

#include <gtest/gtest.h>

#include <tivra_sim/Hub.h>
#include <tivra_testkit/Client.h>
#include <tivra_testkit/StartedHub.h>

#include "support/Sanitizers.h"

/// True in builds that run many times slower, where tests move less data.
inline constexpr bool IS_SANITIZED = kHasAddressSanitizer || kHasThreadSanitizer;

using tivra_testkit::Client;
using tivra_testkit::RecordingApp;
using tivra_testkit::SeenMessage;
using tivra_testkit::StartedHub;

/// The library's log belongs to the report of a failed test.
inline const bool kLogIsShown = (Client::printLogIf([] { return testing::Test::HasFailure(); }), true);

/// A hub that carries these sources, and whose user may see them.
inline tivra_sim::HubConfig hubOf(const std::set<int>& sources) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.boxPermissions = sources;
    config.users[0].permissions = sources;
    return config;
}
