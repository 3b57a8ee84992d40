#pragma once

namespace tivra_bus {

/// Everything in order, in batches.
inline constexpr const char* kTickTopic = "tivra.tick";
/// The last values of each symbol, compacted, keyed "source:symbol".
inline constexpr const char* kLastTopic = "tivra.last";
/// What each source is doing, compacted, keyed by its number.
inline constexpr const char* kStatusTopic = "tivra.status";
/// The fields of the hubs, compacted, with the one key "fields".
inline constexpr const char* kDictionaryTopic = "tivra.dictionary";
/// The consumer group in which bridges share the partitions.
inline constexpr const char* kBridgeGroup = "tivra-bridge";
/// The header of a message that says which process has written it.
inline constexpr const char* kWriterHeader = "tivra-writer";

} // namespace tivra_bus
