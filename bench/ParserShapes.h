#pragma once

#include "TapeFrames.h"

#include <vector>

namespace tivra_bench {

/// What the day doesn't show: messages that end in a text, fields in many orders, many pairs and long texts.
void benchShapes(const std::vector<TapeMessage>& messages);

} // namespace tivra_bench
