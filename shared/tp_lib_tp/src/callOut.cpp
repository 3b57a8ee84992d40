#include <tp/callOut.h>

#include <tp/eprintf.h>

namespace tp {

void reportException(const char* function, const char* text) noexcept {
    eprintf(EPF_CRIT, "An exception left the application's %s: %s", function, text);
}

} // namespace tp
