#pragma once

#include "kvnparse/Parser.h"

#include <memory>

namespace KVNAPI {

/// Frames with a header and numbers for tokens, as a hub sends them.
[[nodiscard]] std::unique_ptr<Parser> newKVNparser(int maxBufferSize);
/// Lines of text, with names or numbers for tokens.
[[nodiscard]] std::unique_ptr<Parser> newVKVNparser(int maxBufferSize);

/// The same frames inside one zlib stream.
[[nodiscard]] std::unique_ptr<Parser> newZKVNparser(int maxBufferSize);

} // namespace KVNAPI
