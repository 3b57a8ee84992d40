#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <request/Commands.h>

namespace tivra_internal {

/// What a request says: its text, and beside it the parts that the engine reads back without parsing the
/// text.
struct RequestContent {
    using TokenValue = std::pair<int, std::string>;

    std::string request;
    int32_t srcid = -1; ///< source number, -1 when none was added
    tivra::Commands command = tivra::SUBSCRIBE;
    int64_t origTag = -1; ///< the tag referred to, -1 when none was added
    /// Everything added, sorted by token number, then value: a flat form of an ordered multiset, since every
    /// standing request keeps one.
    std::vector<TokenValue> tokValSet;
    std::vector<int32_t> kvnTokenNums;
    char symbol[33] = "";
    bool isCmdSet = false;
    bool isTagSetInString = false;

    [[nodiscard]] bool operator==(const RequestContent& other) const = default;
};

} // namespace tivra_internal
