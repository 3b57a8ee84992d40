#pragma once

#include "bus/BatchFields.h"
#include "bus/BatchHeader.h"
#include "bus/BusRecord.h"
#include "bus/SymbolImage.h"
#include "bus/SymbolName.h"

#include <feed/Update.h>

#include <cstdint>
#include <string>

namespace tivra_bus {

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

/// Writes the records of values in one payload. @thread any, it has no state
class RecordWriter {
public:
    virtual ~RecordWriter() = default;

    /// As a batch's header names it.
    [[nodiscard]] virtual const char* payload() const = 0;
    /// Whether a record can be read without the batch that it is in.
    [[nodiscard]] virtual bool standsAlone() const = 0;
    /// Appends the record, its line end included.
    /// @param fields  of the batch, which gets those that the record needs
    virtual void append(std::string& out, const ValuesRecord& record, BatchFields& fields) const = 0;
};

} // namespace tivra_bus
