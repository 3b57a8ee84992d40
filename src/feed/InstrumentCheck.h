#pragma once

#include <feed/Instrument.h>

namespace tivra_internal {

/// @throws tivra::Error (InvalidArgument) for what no hub can be asked for, and what would read as another
///         request on the wire
/// @param what  the request, for the text
void checkInstrument(const tivra::Instrument& instrument, const char* what);

} // namespace tivra_internal
