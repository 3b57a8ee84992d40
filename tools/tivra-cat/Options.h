#pragma once

#include "Targets.h"

#include "common/AddressOptions.h"
#include "common/PageProtection.h"
#include "common/TlsOptions.h"

#include <tivra.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tivra_cat {

enum class OutputKind { Table, JsonLines, RawPairs };
enum class StatisticsForm { Text, Json, OpenMetrics };
enum class Choice { Auto, Always, Never };

/// Everything that the command line and the configuration file say. A value that was not given leaves the
/// library's default in force.
struct Options {
    tivra::Commands command = tivra::QUERYSNAP;

    std::vector<std::string> hosts;   ///< "address:port", resolved
    std::vector<std::string> backups; ///< the same
    std::string user;
    std::string passwordFile;
    tivra_tools::TlsOptions tls;
    tivra_tools::AddressOptions addresses;
    std::string from; ///< "nats://host:port,...", in place of hubs; empty for hubs
    std::string credentialsFile;

    std::vector<Target> targets;
    std::vector<std::string> tokens; ///< names or numbers, for lists of tokens and enumerations
    std::optional<int> depthType;

    OutputKind output = OutputKind::Table;
    bool isQuiet = false;
    std::string recordFile;     ///< capture to write, empty for none
    std::string recordWireFile; ///< frames to write, empty for none
    std::vector<std::string> fields;
    double everySeconds = 0.0; ///< table: most often that a symbol's row is printed; 0 prints every message
    Choice color = Choice::Auto;
    Choice progress = Choice::Auto;
    bool showsSummary = true;
    std::size_t bufferSize = 100000; ///< messages that may wait for the output

    std::uint64_t count = 0;      ///< messages after which to end, 0 for no limit
    double durationSeconds = 0.0; ///< time after which to end, 0 for no limit
    double timeoutSeconds = 30.0; ///< time that answers may take, 0 for no limit
    double statsSeconds = 0.0;    ///< interval between statistics, 0 for none
    StatisticsForm statsForm = StatisticsForm::Text;
    std::string statsFile;   ///< replaced at each interval; empty for standard error
    std::string statsListen; ///< "address:port" to serve them at, empty for none
    tivra_tools::PageProtection statsProtection;
    tivra::StatisticsText::Labels statsLabels; ///< of the forms for machines
    bool isStrict = false;                     ///< ends at the first incident
    std::string sequenceField; ///< name or number of a field that counts up by one per message

    std::optional<bool> compression;
    std::optional<bool> isMultithreaded;
    std::optional<long> maxUserThreads;
    std::optional<long> maxHubThreads;
    std::optional<long> queueMegabytes;
    std::optional<bool> watchlist; ///< unlike the library it is on unless it is said otherwise
    std::optional<bool> holdReads;
    std::optional<long> conflationType;
    std::optional<long> conflationInterval;
    std::optional<long> jitThreshold;
    std::optional<bool> conflationIndicator;
    std::optional<long> readTimeout;
    std::optional<long> connectTimeout;
    std::optional<long> retries;

    std::string logFile;
    bool isDebug = false;
};

/// Reads the command line and the files that it names. Throws Failure with ExitCode::Usage, or UsageError,
/// for what is wrong.
/// @return nothing when there is nothing to do but end well (--help, --version).
[[nodiscard]] std::optional<Options> readOptions(int argc, char** argv);

} // namespace tivra_cat
