#pragma once

#include "bus/ArrowReader.h"
#include "bus/BatchHeader.h"
#include "bus/BodyDecoder.h"
#include "bus/BusRecord.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tivra_bus {

class JsonReading;

/// The header of a batch, whatever its payload.
/// @throws BatchError when it isn't a batch, or of another version
[[nodiscard]] BatchHeader headerOf(std::string_view message);

/// Reads the records of a batch of any payload, which may be any bytes. It keeps nothing but the place
/// where it is.
/// @thread one at a time
class BatchReader {
public:
    /// @param bytes  a message of the stream, which has to stay
    /// @throws BatchError when it isn't a batch, is of another version, or has a payload of another name
    explicit BatchReader(std::string_view bytes) : BatchReader(bytes, nullptr) {}
    /// The same with what `decoder` has learned of batches before.
    BatchReader(std::string_view bytes, BodyDecoder& decoder) : BatchReader(bytes, &decoder) {}
    BatchReader(const BatchReader&) = delete;
    BatchReader& operator=(const BatchReader&) = delete;

    [[nodiscard]] const BatchHeader& header() const { return m_arrow ? m_arrow->header() : m_header; }

    /// @return false at the end, after as many records as the header says
    /// @throws BodyError where the bytes of the hub's message can't be read; the record has its source,
    /// symbol and number, and the next one can be read. BatchError with the line or the row, where it isn't a
    /// record, and where lines or rows are missing or left over
    [[nodiscard]] bool next(BusRecord& record) {
        return next(record, [](int, std::string_view) { return true; });
    }
    /// The same of the symbols that `isWanted` says yes to, and of gaps of all symbols. Others are passed
    /// over without being read where they are written as bridges write them, so they aren't checked.
    [[nodiscard]] bool next(BusRecord& record, const std::function<bool(int, std::string_view)>& isWanted);

private:
    /// @param decoder  null for one of its own
    BatchReader(std::string_view bytes, BodyDecoder* decoder);

    [[nodiscard]] std::string_view nextLine();
    /// The next line that isn't of a symbol that nobody wants; nothing at the end.
    [[nodiscard]] std::optional<std::string_view>
    nextWanted(const std::function<bool(int, std::string_view)>& isWanted);
    /// What follows a line. @return nothing where it isn't so long, or no line end follows
    [[nodiscard]] std::optional<std::string_view> nextBody(std::uint64_t length);
    void readValues(BusRecord& record, const JsonReading& line);

    std::optional<ArrowReader> m_arrow; ///< of a batch that is an Arrow stream, which is all there is then
    BatchHeader m_header;
    std::string_view m_rest;
    std::size_t m_line = 1;  ///< the number of the last one; the bytes of a message count as one
    std::size_t m_count = 0; ///< of records
    BodyDecoder m_ownDecoder;
    BodyDecoder* m_decoder; ///< null in a batch without bodies
};

/// The message of a symbol's last values.
struct LastValues {
    int source = 0;
    std::string symbol;
    std::uint64_t epoch = 0;
    std::uint64_t number = 0; ///< BusRecord::number of the last record that is merged into it
    std::string state;
    std::string time;
    BusFields fields;
};

/// @throws BatchError when it isn't such a message
[[nodiscard]] LastValues readLastValues(std::string_view message);

} // namespace tivra_bus
