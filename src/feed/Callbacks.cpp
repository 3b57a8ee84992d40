#include "feed/Callbacks.h"

#include <tp/callOut.h>

namespace tivra_internal {

using tivra::Error;

void Callbacks::report(const char* name, std::string_view context, const Error* error, const char* text) {
    m_failures.fetch_add(1, std::memory_order_relaxed);
    const std::string function = std::string(name) + " for \"" + std::string(context) + '"';
    tp::reportException(function.c_str(), text);
    if (!m_onError)
        return;
    tp::callOut("onError", [&] {
        if (error != nullptr) {
            m_onError(*error);
            return;
        }
        std::string cause = function + " has thrown: " + text;
        m_onError(Error({Error::Code::InvalidArgument, Error::Phase::Subscription, std::move(cause),
                         "catch what a callback may throw", "", 0, "", 0}));
    });
}

} // namespace tivra_internal
