#include "session/routing/OwnSubscriptions.h"

#include <string>
#include <string_view>

#include <tp/eprintf.h>

#include "receive/QueueReadHandler.h"
#include "receive/SystemSource.h"
#include "request/PrintableTag.h"
#include "request/RequestInternal.h"
#include "request/RequestLength.h"
#include "session/routing/HasSymbol.h"

namespace tivra_internal {
namespace {

constexpr int kSymbolToken = 5;

/// Symbols of the system source that the library subscribes for itself.
struct OwnSymbols {
    bool heartbeat;
    bool hubStatus;
};

OwnSymbols ownSymbolsIn(const RequestInternal& request) {
    const std::string_view symbol = request.getSymbol();
    return {symbol.empty() || symbol == QueueReadHandler::HEARTBEAT_SYM,
            symbol.empty() || symbol == QueueReadHandler::HUB_STATUS_SYM};
}

} // namespace

void OwnSubscriptions::apply(RequestInternal& request) {
    const tivra::Commands command = request.getCommand();
    if (command == tivra::SUBSCRIBE || command == tivra::QUERYSNAPANDSUBSCRIBE)
        applySubscribeRule(request);
    else if (command == tivra::UNSUBSCRIBE)
        applyUnsubscribeRule(request);
}

void OwnSubscriptions::applySubscribeRule(RequestInternal& request) {
    if (request.getSrcid() == kSystemSource) {
        if (ownSymbolsIn(request).heartbeat)
            m_HBSubscribed = true;
    } else if (request.getSrcid() == -1 && request.getCommand() == tivra::SUBSCRIBE && !hasSymbol(request)) {
        eprintf(EPF_WARN, "Full subscribe not supported by API: tag=(%lld)\n", printable(request.getTag()));
        request.add(kSymbolToken, std::string(kFullSubscribeRefused));
    }
}

/// The library keeps two subscriptions for itself, so an unsubscribe of one is followed by a fresh subscribe.
void OwnSubscriptions::applyUnsubscribeRule(RequestInternal& request) {
    const long long tag = printable(request.getTag());
    if (request.getSrcid() == kSystemSource) {
        const OwnSymbols own = ownSymbolsIn(request);
        if (own.heartbeat) {
            m_HBSubscribed = false;
            request.resubHB = true;
            eprintf(EPF_DBUG,
                    "Must resubscribe to heartbeats after sending unsubscribe request with tag=(%lld); "
                    "src=%d, sym=%s\n",
                    tag, request.getSrcid(), request.getSymbol());
        }
        if (own.hubStatus) {
            request.resubHubStatus = true;
            eprintf(
                EPF_DBUG,
                "Must resubscribe to %s after sending unsubscribe request with tag=(%lld); src=%d, sym=%s\n",
                QueueReadHandler::HUB_STATUS_SYM, tag, request.getSrcid(), request.getSymbol());
        }
    } else if (request.getSrcid() == -1 && !hasSymbol(request)) {
        eprintf(EPF_WARN, "Full unsubscribe not supported by API: tag=(%lld)\n", tag);
        request.add(kSymbolToken, std::string(kFullUnsubscribeRefused));
    }
}

} // namespace tivra_internal
