#pragma once

#include <string_view>

#include <feed/Log.h>

namespace tivra_internal {

/// The area of the lines that a source file writes, by its path in the tree.
[[nodiscard]] inline tivra::LogArea logAreaOf(std::string_view file) noexcept {
    using tivra::LogArea;
    struct Rule {
        std::string_view part;
        LogArea area;
    };
    // The first one counts.
    constexpr Rule kRules[] = {
        {"Statistic", LogArea::Statistics},     {"DictionaryStep", LogArea::Dictionary},
        {"/handshake/", LogArea::Login},        {"/config/User", LogArea::Login},
        {"Entitlements", LogArea::Login},       {"/dictionary/", LogArea::Dictionary},
        {"/DataMap", LogArea::Dictionary},      {"/Map", LogArea::Dictionary},
        {"/request/", LogArea::Requests},       {"/routing/", LogArea::Requests},
        {"SessionRequests", LogArea::Requests}, {"/hub/Request", LogArea::Requests},
        {"QueueDepth", LogArea::Queue},         {"/receive/", LogArea::Queue},
        {"/hub/", LogArea::Connection},         {"/lifecycle/", LogArea::Connection},
        {"/threads/", LogArea::Connection},     {"/session/", LogArea::Connection},
    };
    for (const Rule& rule : kRules)
        if (file.find(rule.part) != std::string_view::npos)
            return rule.area;
    return LogArea::Other;
}

} // namespace tivra_internal
