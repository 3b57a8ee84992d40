#pragma once
#include "request/RequestInternal.h"

namespace tivra_internal {

[[nodiscard]] inline bool hasSymbol(const RequestInternal& request) {
    return request.getSymbol()[0] != '\0';
}

} // namespace tivra_internal
