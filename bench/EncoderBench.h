#pragma once

#include "TapeFrames.h"

#include <vector>

namespace tivra_bench {

/// Writes the messages in the two forms of the encoders, beside the same with snprintf and fmt.
void benchEncoders(const std::vector<TapeMessage>& messages);

} // namespace tivra_bench
