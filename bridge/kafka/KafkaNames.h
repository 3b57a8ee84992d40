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
/// Which bridge writes which partition, as a log of writes to a table.
inline constexpr const char* kLeaseTopic = "tivra.lease";
/// A client library that reads without a group wants the name of one all the same.
inline constexpr const char* kReaderGroup = "tivra-bridge-reader";
/// The header of a message that says which process has written it.
inline constexpr const char* kWriterHeader = "tivra-writer";
/// The header of a message of the table of leases that says which revision of the entry it replaces.
inline constexpr const char* kReplacesHeader = "tivra-replaces";

} // namespace tivra_bus
