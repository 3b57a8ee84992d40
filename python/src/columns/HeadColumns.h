#pragma once

#include "columns/Bitmap.h"
#include "columns/RowHead.h"
#include "columns/TextDictionary.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tivra_python {

/// The columns that stand in front of those of the fields. One thread at a time.
struct HeadColumns {
    std::vector<std::int64_t> received;
    std::vector<std::int32_t> source;
    std::vector<std::int32_t> symbol; ///< numbers of `symbols`
    std::vector<std::int8_t> kind;    ///< numbers of kRowKinds
    std::vector<std::int64_t> tag;
    std::vector<std::int32_t> status;
    Bitmap hasTag;
    Bitmap hasStatus;
    Bitmap gap;
    std::size_t tags = 0;
    std::size_t statuses = 0;
    TextDictionary symbols;

    void append(const RowHead& head) {
        const std::int32_t code = symbols.codeOf(head.symbol);
        received.push_back(head.received);
        source.push_back(head.source);
        symbol.push_back(code);
        kind.push_back(static_cast<std::int8_t>(head.kind));
        tag.push_back(head.tag);
        status.push_back(head.status);
        hasTag.append(head.hasTag);
        hasStatus.append(head.hasStatus);
        gap.append(head.isAfterGap);
        tags += head.hasTag ? 1 : 0;
        statuses += head.hasStatus ? 1 : 0;
    }
    [[nodiscard]] std::size_t rows() const noexcept { return received.size(); }
};

} // namespace tivra_python
