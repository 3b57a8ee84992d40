#include "session/routing/AlternateIndexScan.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>

#include <tp/eprintf.h>

#include "request/RequestInternal.h"
#include "request/RequestLength.h"

namespace tivra_internal {
namespace {

constexpr long kNoAlternateIndex[] = {
    3,    // permission
    4,    // source
    5,    // symbol
    2035, // conflation
    5022, // command
    5026, // tag
    5039, // depth type
    5052, // tag referred to
    5205, // filter
};

bool isAlternateIndex(long token) {
    return std::find(std::begin(kNoAlternateIndex), std::end(kNoAlternateIndex), token) ==
           std::end(kNoAlternateIndex);
}

AltIndexInfo makeEntry(const std::string& pair, std::size_t equals, long token, tivra::Commands command) {
    AltIndexInfo entry;
    entry.kvnid = static_cast<int32_t>(token);
    entry.tokname = pair.substr(0, equals);
    entry.value = pair.substr(equals + 1);
    entry.command = command;
    return entry;
}

} // namespace

bool scanAlternateIndexes(RequestInternal& request) {
    const bool wasConverted = !request.altIndex.empty() && request.altIndex.front().suppressQuerySnapOutput;
    request.altIndex.clear();
    // On a repeated pass the first entry is built as on the first one, though the text is converted by now.
    tivra::Commands command = wasConverted ? tivra::SUBSCRIBE : request.getCommand();
    std::size_t start = 0;
    while (start < request.getText().size()) {
        const std::size_t end = std::min(request.getText().find('|', start), request.getText().size());
        const std::string pair = request.getText().substr(start, end - start);
        std::size_t next = end + 1;
        const std::size_t equals = pair.find('=');
        const long token = equals == std::string::npos ? 0 : std::strtol(pair.c_str(), nullptr, 10);
        if (equals != std::string::npos && isAlternateIndex(token)) {
            AltIndexInfo entry = makeEntry(pair, equals, token, command);
            if (command == tivra::SUBSCRIBE) {
                const std::size_t place = wasConverted ? std::string::npos : request.convertSubscribeToSnap();
                if (wasConverted || place != std::string::npos) {
                    entry.suppressQuerySnapOutput = true;
                    command = tivra::QUERYSNAPANDSUBSCRIBE;
                    eprintf(EPF_DBUG, "convert Subscribe to QuerySnapAndSubscribe");
                }
                if (place != std::string::npos && place < start)
                    next += kConversionGrowth;
            }
            eprintf(EPF_DBUG, "altIndex for tag %lld = %s", static_cast<long long>(request.getTag()),
                    entry.tokname.c_str());
            eprintf(EPF_DBUG, "altIndex.value = %s", entry.value.c_str());
            request.altIndex.push_back(std::move(entry));
        }
        start = next;
    }
    return !request.altIndex.empty();
}

} // namespace tivra_internal
