#include "TivraVersion.h"

namespace tivra {

const char* version() noexcept {
    return TIVRA_VERSION_STRING;
}

} // namespace tivra
