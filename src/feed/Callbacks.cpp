#include "feed/Callbacks.h"

#include <tp/callOut.h>
#include <tp/eprintf.h>

namespace tivra_internal {

using tivra::Error;

void Callbacks::report(const char* name, std::string_view context, const Error* error, const char* text) {
    m_failures.fetch_add(1, std::memory_order_relaxed);
    eprintf(EPF_CRIT, "exception out of %s for \"%.*s\": %s", name, static_cast<int>(context.size()),
            context.data(), text);
    if (!m_onError)
        return;
    tp::callOut("onError", [&] {
        if (error != nullptr) {
            m_onError(*error);
            return;
        }
        std::string cause = std::string(name) + " for \"" + std::string(context) + "\" has thrown: " + text;
        m_onError(Error({Error::Code::InvalidArgument, Error::Phase::Subscription, std::move(cause),
                         "catch what a callback may throw", "", 0, "", 0}));
    });
}

} // namespace tivra_internal
