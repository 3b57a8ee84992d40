#pragma once

#include "Dictionary.h"
#include "Frame.h"

#include <string>

namespace tivra_wire {

/// A frame that has been read well, for people: a line for itself and one for each field with its offset,
/// token, type, name and value.
[[nodiscard]] std::string dump(const Frame& frame, Form form, const Dictionary& dictionary);

} // namespace tivra_wire
