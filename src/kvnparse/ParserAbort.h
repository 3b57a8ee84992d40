#pragma once

#include "kvnparse/bufref.h"

namespace KVNAPI {

/// Writes why a frame was refused into the thread's error text: the place, the reason and the frame itself in
/// printable form, as far as the buffer goes.
void parserAbortFunc(bufref frame, const char* position, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

} // namespace KVNAPI
