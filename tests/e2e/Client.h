#pragma once

#include <set>
#include <utility>

#include <gtest/gtest.h>

#include <tivra_sim/Hub.h>
#include <tivra_testkit/Client.h>
#include <tivra_testkit/StartedHub.h>

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#    define TIVRA_E2E_SANITIZED 1
#elif defined(__has_feature)
#    if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#        define TIVRA_E2E_SANITIZED 1
#    endif
#endif

/// True in builds that run many times slower, where tests move less data.
#ifdef TIVRA_E2E_SANITIZED
inline constexpr bool IS_SANITIZED = true;
#else
inline constexpr bool IS_SANITIZED = false;
#endif

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
