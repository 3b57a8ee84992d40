#pragma once

#include "bus/BatchHeader.h"
#include "bus/BusRecord.h"
#include "bus/ClosedBatch.h"
#include "bus/SymbolImage.h"
#include "bus/SymbolName.h"

#include <feed/Update.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tivra_bus {

/// Whose record it is.
struct RecordKey {
    int source = 0;
    std::string_view symbol;
    std::uint64_t number = 0; ///< see BusRecord::number
};

/// An update, image or refresh that is to be written.
struct ValuesRecord {
    RecordType type = RecordType::Update;
    const SymbolName& name;
    std::uint64_t number = 0; ///< see BusRecord::number
    const SymbolImage& image; ///< all values, those of the record included
    /// What the record says of them, and what has said it; null for all that are there.
    const SymbolImage::Change* change = nullptr;
    const tivra::Update* update = nullptr;
};

/// Collects records in one payload until the batch is closed; then the next one begins. @thread one at a time
class OpenBatch {
public:
    virtual ~OpenBatch() = default;

    virtual void add(const ValuesRecord& record) = 0;
    virtual void addState(const RecordKey& key, std::string_view state, std::string_view cause) = 0;
    /// @param key  null for a gap of all symbols of the partition
    virtual void addGap(const RecordKey* key, const BusGap& gap) = 0;

    /// Takes the last record out again. Only once after each.
    virtual void removeLast() = 0;

    [[nodiscard]] virtual std::size_t count() const = 0;
    /// Of the records.
    [[nodiscard]] virtual std::size_t bytes() const = 0;
    /// That the message has at most, but for the room that a writer keeps for its header.
    [[nodiscard]] virtual std::size_t messageBytes() const = 0;
    /// The last record as a line of JSON, which can be read without its batch; nothing where there is no such
    /// line. Valid until the next record.
    [[nodiscard]] virtual std::optional<std::string_view> lastLine() const = 0;

    /// The message, whose header gets the number of records and the payload. The batch is empty again.
    /// @throws BatchError for a header that no room is kept for
    [[nodiscard]] virtual ClosedBatch close(BatchHeader header) = 0;
    /// Gives the memory of a batch that is done with to the next one.
    virtual void reuse(std::string buffer) = 0;
};

/// @param bytes  that a batch is expected to have
[[nodiscard]] std::unique_ptr<OpenBatch> openBatch(Payload payload, std::size_t bytes);

} // namespace tivra_bus
