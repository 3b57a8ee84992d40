#include "request/RequestLength.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "request/CommandClasses.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

constexpr std::string_view kSymbolPair = "|5=";
constexpr std::size_t kLongestTag = std::numeric_limits<int64_t>::digits10 + 1;

std::size_t wordLength(tivra::Commands command) {
    return std::string_view(RequestImpl::getCommandString(command)).size();
}

/// What routing may add to a request that goes out with this command.
std::size_t addedByRouting(tivra::Commands command, const RequestInternal& request) {
    if (request.getSymbol()[0] != '\0')
        return 0;
    const bool isFull = request.getSrcid() == -1;
    const auto refused = [isFull](std::string_view word) {
        return isFull ? kSymbolPair.size() + word.size() : 0;
    };
    if (command == tivra::UNSUBSCRIBE)
        return refused(kFullUnsubscribeRefused);
    if (command != tivra::SUBSCRIBE)
        return 0;
    // With an alternate identifier it becomes a snap and subscribe instead.
    return std::max(kConversionGrowth, refused(kFullSubscribeRefused));
}

} // namespace

std::size_t longestText(const RequestInternal& request) {
    const std::size_t length = request.getText().size();
    if (!request.isCommandSet())
        return length;
    const tivra::Commands command = request.getCommand();
    const std::size_t sent = length + addedByRouting(command, request);
    if (!isSubscribeCommand(command))
        return sent;
    const tivra::Commands end = unsubscribeOf(command);
    const std::size_t unsubscribe = length - wordLength(command) + wordLength(end) -
                                    std::to_string(request.getTag()).size() + kLongestTag +
                                    addedByRouting(end, request);
    return std::max(sent, unsubscribe);
}

} // namespace tivra_internal
