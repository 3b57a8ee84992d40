#pragma once

#include "TapeFrames.h"

#include <vector>

namespace tivra_bench {

/// Messages whose numbers are decoded when they are asked for, beside those whose numbers are decoded at
/// once.
void benchLazyValues(const std::vector<TapeMessage>& messages);

} // namespace tivra_bench
