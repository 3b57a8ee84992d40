#pragma once

#include "kvnparse/NumericText.h"

#include <cstdint>
#include <cstring>

namespace KVNAPI {

/// Writes a number as `Write` does and keeps its text, so that the same number costs no conversion when it
/// comes next. Used by one thread.
template<class Number, char* (*Write)(char* out, Number value)>
class LastNumberText {
public:
    char* put(char* out, Number value) noexcept {
        if (value != m_last) {
            m_length = static_cast<std::uint8_t>(Write(m_text, value) - m_text);
            m_last = value;
        }
        std::memcpy(out, m_text, m_length);
        return out + m_length;
    }

private:
    Number m_last = 0;
    std::uint8_t m_length = 1;
    char m_text[kNumberTextMax] = {'0'};
};

} // namespace KVNAPI
