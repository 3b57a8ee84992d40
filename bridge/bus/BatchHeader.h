#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tivra_bus {

/// The highest epoch: readers in any language have it exactly, and there is room above it for no mistake.
inline constexpr std::uint64_t kMostEpoch = std::uint64_t{1} << 53;

/// How the records of a batch are written.
enum class Payload {
    Json, ///< as lines of text
    /// Values as the bytes of the hub's message, with the meaning of their numbers in the second line.
    Body,
    Arrow ///< as the rows of an Arrow stream
};

/// As headers and options name it: "json", "body" or "arrow".
[[nodiscard]] const char* nameOf(Payload payload);

/// What stands in front of each batch, whatever follows it: a JSON object. In an Arrow stream it is metadata
/// of the schema.
///
/// Epoch and batch number order all batches of a partition: the writer of a higher epoch has taken over from
/// the one before, and batches of one epoch count up by one from 1. They are of one writer.
struct BatchHeader {
    std::string payload = "json"; ///< how the records after it are written
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
/// The same object without an end.
[[nodiscard]] std::string headerText(const BatchHeader& header);

/// Reads the line at the start of `bytes`.
/// @param length  gets the length of the line, its end included
/// @throws BatchError for anything that isn't such a line, and for another version
[[nodiscard]] BatchHeader readHeader(std::string_view bytes, std::size_t& length);
/// The same of the object itself. @param place  of it, in errors
[[nodiscard]] BatchHeader headerIn(std::string_view object, const std::string& place);

} // namespace tivra_bus
