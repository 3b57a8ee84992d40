#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tivra_python {

/// Gives each text that is met a small number, for columns with few different texts. One thread at a time.
class TextDictionary {
public:
    TextDictionary() = default;
    /// Its look-up points at names that a copy would have elsewhere.
    TextDictionary(const TextDictionary&) = delete;
    TextDictionary& operator=(const TextDictionary&) = delete;
    TextDictionary(TextDictionary&&) noexcept = default;
    TextDictionary& operator=(TextDictionary&&) noexcept = default;
    ~TextDictionary() = default;

    /// The number of the text, from 0 in the order of the first sight.
    [[nodiscard]] std::int32_t codeOf(std::string_view text);

    [[nodiscard]] std::size_t size() const noexcept { return m_offsets.size() - 1; }
    [[nodiscard]] const std::vector<std::int32_t>& offsets() const noexcept { return m_offsets; }
    /// All texts one behind the other, as UTF-8.
    [[nodiscard]] const std::string& text() const noexcept { return m_text; }

private:
    std::deque<std::string> m_names; ///< as they were given; never move
    std::unordered_map<std::string_view, std::int32_t> m_codes;
    std::vector<std::int32_t> m_offsets{0};
    std::string m_text;
    std::string_view m_last; ///< rows of one symbol tend to follow each other
    std::int32_t m_lastCode = -1;
};

} // namespace tivra_python
