#pragma once

#include "bus/JsonRecords.h"

namespace tivra_bus {

/// Records with the bytes of the hub's message after them; as text where there are none.
class BodyRecords : public RecordWriter {
public:
    [[nodiscard]] Payload payload() const override { return Payload::Body; }
    void append(std::string& out, const ValuesRecord& record, BatchFields& fields) const override;

private:
    JsonRecords m_text;
};

} // namespace tivra_bus
