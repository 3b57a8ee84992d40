#pragma once

#include "bus/BatchFields.h"
#include "bus/OpenBatch.h"

#include <string>

namespace tivra_bus {

/// Writes the records of values as lines of one payload. @thread any, it has no state
class RecordWriter {
public:
    virtual ~RecordWriter() = default;

    [[nodiscard]] virtual Payload payload() const = 0;
    /// Appends the record, its line end included.
    /// @param fields  of the batch, which gets those that the record needs
    virtual void append(std::string& out, const ValuesRecord& record, BatchFields& fields) const = 0;
};

} // namespace tivra_bus
