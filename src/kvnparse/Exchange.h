#pragma once

#include <tp/chash.h>

#include <cstdint>

namespace KVNAPI {

/// A source or permission id. Owned by the DataMap that it was looked up in.
class Exchange {
public:
    explicit Exchange(int sourceId) noexcept;
    Exchange(const Exchange&) = default;
    Exchange& operator=(const Exchange&) = default;
    virtual ~Exchange() = default;

    std::int32_t id;
    char sid[8] = {}; ///< decimal text of `id`; all zero when that has 8 characters or more
    unsigned skipParse : 1;
    unsigned lgcyFinance : 1; ///< in the finance range of the older feed numbering
    unsigned lgcyNews : 1;    ///< in the news range of the older feed numbering
    tp::chash_node node;      ///< link in the map's index
};

} // namespace KVNAPI
