#pragma once

#include "bus/ArrowColumn.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_bus {

/// Writes columns as an Arrow stream of one batch. The schema is written anew only where the columns aren't
/// those of the stream before. @thread one at a time
class ArrowEncoder {
public:
    ArrowEncoder();
    ~ArrowEncoder();
    ArrowEncoder(const ArrowEncoder&) = delete;
    ArrowEncoder& operator=(const ArrowEncoder&) = delete;

    /// Appends the stream.
    /// @param columns  filled up to `rows`; they have to stay for as long as this does
    /// @param header   goes into the metadata of the schema
    /// @throws BatchError when it can't be written, for want of memory
    void append(std::string& out, const std::vector<const ArrowColumn*>& columns, std::size_t rows,
                std::string_view header);

private:
    struct Buffers;

    /// A column as the schema has it.
    struct Entry {
        const ArrowColumn* column;
        bool isBinary;

        friend bool operator==(const Entry& a, const Entry& b) = default;
    };

    [[nodiscard]] bool isAsBefore(const std::vector<const ArrowColumn*>& columns) const;
    void writeSchema(const std::vector<const ArrowColumn*>& columns, std::string_view header);
    void appendSchema(std::string& out, const std::vector<const ArrowColumn*>& columns,
                      std::string_view header);

    std::unique_ptr<Buffers> m_buffers;
    std::vector<Entry> m_entries; ///< of the schema
    std::string m_schema;         ///< as it was written, with the room for a header
    std::size_t m_headerAt = 0;   ///< in it
    std::size_t m_headerRoom = 0;
};

} // namespace tivra_bus
