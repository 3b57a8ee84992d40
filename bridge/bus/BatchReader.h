#pragma once

#include "bus/BatchHeader.h"
#include "bus/BusRecord.h"

#include <functional>
#include <string_view>

namespace tivra_bus {

/// Reads the records of a batch, which may be any bytes. It keeps nothing but the place where it is.
/// @thread one at a time
class BatchReader {
public:
    /// @param bytes  a message of the stream, which has to stay
    /// @throws BatchError when it isn't a batch, is of another version, or has another payload than "json"
    explicit BatchReader(std::string_view bytes);

    [[nodiscard]] const BatchHeader& header() const { return m_header; }

    /// @return false at the end, after as many records as the header says
    /// @throws BatchError with the line, where it isn't a record, and where lines are missing or left over
    [[nodiscard]] bool next(BusRecord& record) {
        return next(record, [](int, std::string_view) { return true; });
    }
    /// The same of the symbols that `isWanted` says yes to, and of gaps of all symbols. Others are passed
    /// over without being read where they are written as bridges write them, so they aren't checked.
    [[nodiscard]] bool next(BusRecord& record, const std::function<bool(int, std::string_view)>& isWanted);

private:
    [[nodiscard]] std::string_view nextLine();

    BatchHeader m_header;
    std::string_view m_rest;
    std::size_t m_line = 1;
};

/// The message of a symbol's last values.
struct LastValues {
    int source = 0;
    std::string symbol;
    std::uint64_t epoch = 0;
    std::uint64_t number = 0; ///< BusRecord::number of the last record that is merged into it
    std::string state;
    std::string time;
    std::vector<std::pair<std::string, BusValue>> fields;
};

/// @throws BatchError when it isn't such a message
[[nodiscard]] LastValues readLastValues(std::string_view message);

} // namespace tivra_bus
