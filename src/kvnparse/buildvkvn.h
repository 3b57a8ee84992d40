#pragma once

#include "kvnparse/Encoder.h"
#include "kvnparse/EncoderTokens.h"

#include <cstddef>

namespace KVNAPI {

class TVPair;

/// The encoder behind the name "vkvn": one line of names and values for people. The parser of that name wants
/// "|" between fields and does not read it back. Used by one thread.
class buildvkvn final : public Encoder {
public:
    /// What one pair takes at most, but for a text.
    static constexpr std::ptrdiff_t kPairRoom = 87;

    [[nodiscard]] int setMetaMap(DataMap* map) override { return m_tokens.lookUp(map); }
    /// There are none.
    [[nodiscard]] int setOption(const char* name, const char* value) override;
    [[nodiscard]] int encode(bufref* out, const Message* msg) override;

private:
    static constexpr char sep_ = ' ';
    static constexpr char eol_ = '\n';

    [[nodiscard]] char* putName(char* out, const Token* token) const noexcept;

    // What encodeFields is given.
    template<class Form>
    friend int encodeFields(Form& form, bufref* out, const Message& message, std::size_t lead, char last);
    [[nodiscard]] static bufref_len_t headerRoom(const Message& message) noexcept;
    [[nodiscard]] char* putHeader(char* out, const Message& message) const noexcept;
    [[nodiscard]] char* putPair(char* out, const char* end, const TVPair& pair) const;

    EncoderTokens m_tokens;
};

} // namespace KVNAPI
