#pragma once

#include "reader/BusProblem.h"

#include <feed/ConnectionEvent.h>

#include <chrono>
#include <functional>
#include <string>

namespace tivra {

/// Everything that a BusReader is opened with. Secrets are in files alone.
struct BusOptions {
    std::string url; ///< "nats://HOST[:PORT],...", "tls://HOST[:PORT],..." or "kafka://HOST[:PORT],..."
    std::string name = "tivra-reader"; ///< under which the engine lists the connection
    /// Of a user of the engine; with Kafka properties of its client library. Empty for none.
    std::string credentialsFile{};
    std::string caFile{};          ///< certificates that the engine's is checked with; turns TLS on
    std::string certificateFile{}; ///< of this program, with keyFile
    std::string keyFile{};         ///< the key to it
    /// How long an answer of the engine may take, from 100 ms.
    std::chrono::milliseconds answerTimeout{2000};
    /// How much of a stream is read again to join it where last values end, to an hour. It has to be longer
    /// than what the bridges were given as --last-every; where it isn't, updates may be missing at the join,
    /// which is a gap.
    std::chrono::milliseconds lookBack{1000};

    /// What happens to the connection to the engine. @thread reader
    std::function<void(const FeedStateChange&)> onState{};
    /// What is wrong with the engine or in what it holds. @thread reader
    std::function<void(const BusProblem&)> onProblem{};
};

} // namespace tivra
