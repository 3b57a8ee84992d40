#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>
#include <tivra_sim/HubConfig.h>

/// What the command line says; a value that was not given leaves the configuration as it is.
struct Options {
    std::string configFile;
    std::string groupFile;
    std::optional<std::uint16_t> port;
    std::optional<std::string> bindAddress;
    std::optional<std::string> hubVersion;
    std::optional<std::string> topology;
    std::optional<long> heartbeatMs;
    std::optional<long> hubStatusMs;
    std::optional<std::string> playbackFile;
    std::string replayFile;
    double replayFrom = 0.0;
    double replayTo = 0.0; ///< 0 for the end
    std::string load;      ///< SYMBOLS:RATE[:BURST], empty for none
    bool dropsForSlow = false;
    bool isEndless = false;
    std::optional<double> factor;
    bool isFullSpeed = false;
    std::optional<std::size_t> startWhen;
    std::optional<std::size_t> maxEvents;
    std::optional<unsigned> repeat;
    std::string user;
    std::string passwordVariable;
    std::string passwordFile;
    std::string tlsCertificate;
    std::string tlsKey;
    std::string tlsClientCa;
    int verbosity = 0;
    bool endsAfterPlayback = false;
    bool printsConfig = false;
};

/// Declares the options of the command line, which fill `options`.
void declare(CLI::App& app, Options& options);

/// A playback that nothing would start begins at the first subscription: nobody can start one of this program
/// by hand.
void startBySubscriptions(tivra_sim::HubConfig& config);

/// The one hub that they ask for. Throws tivra_sim::ConfigError.
tivra_sim::HubConfig makeConfig(const Options& options);
