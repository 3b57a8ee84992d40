#include "columns/TextDictionary.h"

#include "columns/TextCheck.h"

#include <limits>
#include <stdexcept>

namespace tivra_python {

std::int32_t TextDictionary::codeOf(std::string_view text) {
    if (m_lastCode >= 0 && text == m_last)
        return m_lastCode;
    auto found = m_codes.find(text);
    if (found == m_codes.end()) {
        std::string room;
        const std::string_view valid = utf8Of(text, room);
        if (valid.size() > std::numeric_limits<std::int32_t>::max() - m_text.size())
            throw std::length_error("the symbols exceed what one batch can hold");
        m_text.append(valid);
        m_offsets.push_back(static_cast<std::int32_t>(m_text.size()));
        found = m_codes.emplace(m_names.emplace_back(text), static_cast<std::int32_t>(size() - 1)).first;
    }
    m_last = found->first;
    m_lastCode = found->second;
    return m_lastCode;
}

} // namespace tivra_python
