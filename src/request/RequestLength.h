#pragma once

#include <cstddef>

namespace tivra_internal {

class RequestInternal;

/// What routing puts in the symbol's place when neither source nor symbol limits a subscribe or unsubscribe.
inline constexpr const char* kFullSubscribeRefused = "FULLSUBNOTALLOWEDFROMAPI";
inline constexpr const char* kFullUnsubscribeRefused = "FULLUNSUBNOTALLOWEDFROMAPI";

/// What `Subscribe` grows by when an alternate identifier makes it `QuerySnapAndSubscribe`.
inline constexpr std::size_t kConversionGrowth = 12;

/// The length of the longest text that may be written for a request with its tag: what routing may add
/// counts, and so does the unsubscribe that the watchlist would make of it, whatever the tag of that.
[[nodiscard]] std::size_t longestText(const RequestInternal& request);

} // namespace tivra_internal
