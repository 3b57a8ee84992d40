#include "request/PackedContent.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace tivra_internal {

PackedContent::PackedContent(const RequestContent& content)
    : m_addedCount(static_cast<std::uint32_t>(content.tokValSet.size()))
    , m_tokenNumberCount(static_cast<std::uint32_t>(content.kvnTokenNums.size()))
    , m_textLength(static_cast<std::uint32_t>(content.request.size()))
    , m_source(content.srcid)
    , m_command(content.command)
    , m_isCmdSet(content.isCmdSet)
    , m_isTagSetInString(content.isTagSetInString)
    , m_origTag(content.origTag) {
    std::string bytes = content.request;
    const auto place = [&bytes](std::string_view value) {
        std::size_t at = bytes.find(value);
        if (at == std::string::npos) {
            at = bytes.size();
            bytes.append(value);
        }
        return Place{static_cast<std::uint32_t>(at), static_cast<std::uint32_t>(value.size())};
    };
    std::vector<Added> table;
    table.reserve(m_addedCount);
    for (const auto& [token, value] : content.tokValSet)
        table.push_back({token, place(value)});
    m_symbol = place(content.symbol);
    const std::size_t tableSize = table.size() * sizeof(Added);
    const std::size_t numbersSize = content.kvnTokenNums.size() * sizeof(std::int32_t);
    m_block.reset(new std::byte[tableSize + numbersSize + bytes.size()]);
    std::byte* to = m_block.get();
    std::copy_n(reinterpret_cast<const std::byte*>(table.data()), tableSize, to);
    to += tableSize;
    std::copy_n(reinterpret_cast<const std::byte*>(content.kvnTokenNums.data()), numbersSize, to);
    to += numbersSize;
    std::copy_n(reinterpret_cast<const std::byte*>(bytes.data()), bytes.size(), to);
}

RequestContent PackedContent::unpack() const {
    RequestContent content;
    content.request = textAt({0, m_textLength});
    content.srcid = m_source;
    content.command = m_command;
    content.origTag = m_origTag;
    content.tokValSet.reserve(m_addedCount);
    for (const Added* one = added(); one != added() + m_addedCount; ++one)
        content.tokValSet.emplace_back(one->token, textAt(one->value));
    content.kvnTokenNums.assign(tokenNumbers(), tokenNumbers() + m_tokenNumberCount);
    const std::string_view symbol = textAt(m_symbol);
    std::copy(symbol.begin(), symbol.end(), content.symbol);
    content.symbol[symbol.size()] = '\0';
    content.isCmdSet = m_isCmdSet;
    content.isTagSetInString = m_isTagSetInString;
    return content;
}

bool PackedContent::isPackOf(const RequestContent& content) const {
    return m_source == content.srcid && m_command == content.command && m_origTag == content.origTag &&
           m_isCmdSet == content.isCmdSet && m_isTagSetInString == content.isTagSetInString &&
           textAt({0, m_textLength}) == content.request && textAt(m_symbol) == content.symbol &&
           std::equal(added(), added() + m_addedCount, content.tokValSet.begin(), content.tokValSet.end(),
                      [this](const Added& one, const RequestContent::TokenValue& other) {
                          return one.token == other.first && textAt(one.value) == other.second;
                      }) &&
           std::equal(tokenNumbers(), tokenNumbers() + m_tokenNumberCount, content.kvnTokenNums.begin(),
                      content.kvnTokenNums.end());
}

std::string PackedContent::compareString() const {
    std::string result = std::to_string(static_cast<int>(m_command));
    for (const Added* one = added(); one != added() + m_addedCount; ++one)
        result.append("|").append(std::to_string(one->token)).append("=").append(textAt(one->value));
    return result;
}

} // namespace tivra_internal
