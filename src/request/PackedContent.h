#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "request/RequestContent.h"

namespace tivra_internal {

/// What a request says, in one allocation: its text, and its parts as places in it. Requests stand by the
/// million, and are read back at a replay.
class PackedContent {
public:
    explicit PackedContent(const RequestContent& content);

    [[nodiscard]] RequestContent unpack() const;
    /// Whether unpack() would give this.
    [[nodiscard]] bool isPackOf(const RequestContent& content) const;
    /// The same for requests that say the same in another order, whatever their tags.
    [[nodiscard]] std::string compareString() const;
    [[nodiscard]] tivra::Commands command() const noexcept { return m_command; }

private:
    /// A part of the bytes.
    struct Place {
        std::uint32_t offset;
        std::uint32_t length;
    };
    /// Something added to the request: its token and its value.
    struct Added {
        std::int32_t token;
        Place value;
    };

    [[nodiscard]] const Added* added() const noexcept {
        return reinterpret_cast<const Added*>(m_block.get());
    }
    [[nodiscard]] const std::int32_t* tokenNumbers() const noexcept {
        return reinterpret_cast<const std::int32_t*>(added() + m_addedCount);
    }
    [[nodiscard]] std::string_view textAt(const Place& place) const noexcept {
        const char* const bytes = reinterpret_cast<const char*>(tokenNumbers() + m_tokenNumberCount);
        return {bytes + place.offset, place.length};
    }

    /// Added values, token numbers, the text, and behind it what isn't a part of it.
    std::unique_ptr<std::byte[]> m_block;
    std::uint32_t m_addedCount;
    std::uint32_t m_tokenNumberCount;
    std::uint32_t m_textLength;
    Place m_symbol;
    std::int32_t m_source;
    tivra::Commands m_command;
    bool m_isCmdSet;
    bool m_isTagSetInString;
    std::int64_t m_origTag;
};

} // namespace tivra_internal
