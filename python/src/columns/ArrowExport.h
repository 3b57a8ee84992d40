#pragma once

#include "columns/ArrowAbi.h"
#include "columns/TextDictionary.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tivra_python {

/// One column on its way out, which points into memory that somebody else owns.
struct ArrowColumn {
    std::string name;
    const char* format = "";
    std::int64_t nulls = 0;
    /// Validity (null when there are no NULLs), then what the format has.
    std::vector<const void*> buffers;
    const TextDictionary* dictionary = nullptr;
    bool isNullable = false;
};

/// Fills `out` with a struct array of these columns; each part of it holds `owner` until it is released.
void exportArray(const std::vector<ArrowColumn>& columns, std::int64_t rows,
                 const std::shared_ptr<const void>& owner, ArrowArray* out);

/// Fills `out` with the schema of the same array.
void exportSchema(const std::vector<ArrowColumn>& columns, ArrowSchema* out);

} // namespace tivra_python
