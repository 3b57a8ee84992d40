#pragma once

#include "bus/RecordWriter.h"

#include <string_view>

namespace tivra_bus {

/// Records as lines of JSON.
class JsonRecords : public RecordWriter {
public:
    [[nodiscard]] Payload payload() const override { return Payload::Json; }
    void append(std::string& out, const ValuesRecord& record, BatchFields& fields) const override;
};

/// The message with a symbol's last values.
[[nodiscard]] std::string lastMessage(const SymbolName& name, std::uint64_t number, std::uint64_t epoch,
                                      std::string_view state, std::string_view time,
                                      const SymbolImage& image);

} // namespace tivra_bus
