#include "hub/ErrorText.h"

#include <cstring>

namespace tivra_internal {

namespace {

// strerror_r comes in two forms; overloading takes whichever the system has.
[[maybe_unused]] const char* chosen(int, const char* buffer) {
    return buffer;
}
[[maybe_unused]] const char* chosen(const char* text, const char*) {
    return text;
}

} // namespace

std::string errorText(int error) {
    char buffer[256] = "";
    return chosen(::strerror_r(error, buffer, sizeof(buffer)), buffer);
}

} // namespace tivra_internal
