#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tivra_bus {

/// The highest epoch: readers in any language have it exactly, and there is room above it for no mistake.
inline constexpr std::uint64_t kMostEpoch = std::uint64_t{1} << 53;

// How the records of a batch are written.
inline constexpr const char* kJsonPayload = "json"; ///< values as text
/// Values as the bytes of the hub's message, with the meaning of their numbers in the second line.
inline constexpr const char* kBodyPayload = "body";

/// The first line of each batch, whatever follows it: a JSON object.
///
/// Epoch and batch number order all batches of a partition: the writer of a higher epoch has taken over from
/// the one before, and batches of one epoch count up by one from 1. They are of one writer.
struct BatchHeader {
    std::string payload = kJsonPayload; ///< how the records after it are written
    unsigned partition = 0;
    std::uint64_t epoch = 0;      ///< of the writer, from 1 to kMostEpoch
    std::uint64_t batch = 0;      ///< within the epoch, from 1
    std::size_t records = 0;      ///< that follow
    std::uint64_t dictionary = 0; ///< the revision of the dictionary in its bucket; 0 when there is none
    std::string writer;           ///< who has written it: two may have taken the same epoch
    std::string time;             ///< when the batch was closed, "2026-11-27T06:00:00.123456Z"
};

/// The line, its end included.
[[nodiscard]] std::string headerLine(const BatchHeader& header);

/// Reads the line at the start of `bytes`.
/// @param length  gets the length of the line, its end included
/// @throws BatchError for anything that isn't such a line, and for another version
[[nodiscard]] BatchHeader readHeader(std::string_view bytes, std::size_t& length);

} // namespace tivra_bus
