#include "kvnparse/KVNVerify.h"

#include <tp/te_error.h>

namespace KVNAPI {
namespace {

/// The byte as the texts show it: a signed value, so 0xff stands as ffffffff.
unsigned shown(char byte) {
    return static_cast<unsigned>(static_cast<signed char>(byte));
}

} // namespace

std::ptrdiff_t KVNVerify::refuseHeader(const char* start) {
    tp::te_error("Invalid KVN header: %02x %02x", shown(start[0]), shown(start[1]));
    return -1;
}

std::ptrdiff_t KVNVerify::refuseSize(std::uint32_t frameSize) {
    tp::te_error("Invalid KVN header size: %d", static_cast<int>(frameSize));
    return -1;
}

std::ptrdiff_t KVNVerify::refuseEnd(char endByte) {
    tp::te_error("Invalid ETX (%02x)", shown(endByte));
    return -1;
}

} // namespace KVNAPI
