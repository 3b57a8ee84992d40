#pragma once

namespace tivra_bench {

/// Number conversions against the standard library's, in turn in one run.
void benchNumbers();

} // namespace tivra_bench
