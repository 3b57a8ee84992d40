#pragma once

#include "kvnparse/Encoder.h"

#include <memory>

namespace KVNAPI {

/// Frames with a header and numbers for tokens, as a hub sends them.
[[nodiscard]] std::unique_ptr<Encoder> newKVNencoder();
/// Lines of text for people, with the short names of tokens and a blank between the fields.
[[nodiscard]] std::unique_ptr<Encoder> newVKVNencoder();

} // namespace KVNAPI
