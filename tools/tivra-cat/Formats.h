#pragma once

#include "FieldSelection.h"
#include "Options.h"
#include "OutputFormat.h"

#include <memory>

namespace tivra_cat {

/// Whether there is to be a line of progress. Rows on the same terminal and it would write into each other.
[[nodiscard]] bool wantsProgress(const Options& options);

/// What the options say of the output. `selection` has to stay.
[[nodiscard]] std::unique_ptr<OutputFormat> makeFormat(const Options& options,
                                                       const FieldSelection& selection);

} // namespace tivra_cat
