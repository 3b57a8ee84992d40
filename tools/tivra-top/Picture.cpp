#include "Picture.h"

namespace tivra_top {

const char* nameOf(tivra::FeedState state) {
    switch (state) {
    case tivra::FeedState::Connecting:
        return "connecting";
    case tivra::FeedState::Recovering:
        return "recovering";
    case tivra::FeedState::Established:
        return "established";
    case tivra::FeedState::Closed:
        break;
    }
    return "closed";
}

const char* nameOf(tivra::HubState state) {
    constexpr const char* NAMES[] = {"idle",        "resolving", "connecting", "login",
                                     "downloading", "ready",     "lost",       "refused"};
    const auto index = static_cast<std::size_t>(state);
    return index < std::size(NAMES) ? NAMES[index] : "?";
}

const char* nameOf(tivra::DataState state) {
    constexpr const char* NAMES[] = {"pending", "live", "stale", "recovering", "refused", "closed"};
    const auto index = static_cast<std::size_t>(state);
    return index < std::size(NAMES) ? NAMES[index] : "?";
}

std::unordered_set<std::string_view> namesIn(const Picture& picture) {
    std::unordered_set<std::string_view> names;
    for (const Row& row : picture.rows)
        names.insert(row.name);
    return names;
}

bool isStale(tivra::DataState state) {
    return state != tivra::DataState::Pending && state != tivra::DataState::Live;
}

} // namespace tivra_top
