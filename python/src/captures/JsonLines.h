#pragma once

#include "captures/ArrowCells.h"
#include "captures/TimeText.h"
#include "columns/ArrowAbi.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tivra_python {

/// Writes rows as JSON, an object per line. NULL has no entry; a number that is none is null. One thread at a
/// time.
class JsonLines {
public:
    /// The rows of a struct array of plain columns, in its order. Throws FileFault for a column of another
    /// type than ArrowCells knows.
    /// @return the lines, until the next call
    [[nodiscard]] const std::string& write(const ArrowSchema& schema, const ArrowArray& array);

private:
    struct Entry {
        ArrowCells cells;
        std::string key; ///< as it stands in the text
    };

    void put(const Entry& entry, std::int64_t row);
    void putNumber(double value);
    void putText(std::string_view value);

    TimeText m_time{'T'};
    std::string m_text;
};

} // namespace tivra_python
