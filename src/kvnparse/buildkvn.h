#pragma once

#include "kvnparse/Encoder.h"
#include "kvnparse/EncoderTokens.h"
#include "kvnparse/FrameFormat.h"
#include "kvnparse/KVNEncodeRules.h"
#include "kvnparse/LastNumberText.h"
#include "kvnparse/TokenFunctions.h"

#include <cstdint>
#include <vector>

namespace KVNAPI {

/// The encoder behind the name "kvn": frames with token numbers, as a hub sends them. It writes no display
/// precision, which a message keeps in its header only. Used by one thread.
class buildkvn final : public Encoder {
public:
    /// What one pair takes at most, but for a text.
    static constexpr std::ptrdiff_t kPairRoom = 34;

    /// Also refuses a map that has a token of kvnEncodeRules with another storage.
    [[nodiscard]] int setMetaMap(DataMap* map) override;
    [[nodiscard]] int setOption(const char* name, const char* value) override;
    [[nodiscard]] int encode(bufref* out, const Message* msg) override;

    // For the encoders of single tokens.
    LastNumberText<double, dtoa> lastTimestamp;
    LastNumberText<std::int64_t, i64toa> lastIntTimestamp;

private:
    [[nodiscard]] int suppress(const char* id);

    // What encodeFields is given.
    template<class Form>
    friend int encodeFields(Form& form, bufref* out, const Message& message, std::size_t lead, char last);
    [[nodiscard]] bufref_len_t headerRoom(const Message& message) const noexcept;
    [[nodiscard]] char* putHeader(char* out, const Message& message) const noexcept;
    [[nodiscard]] char* putPair(char* out, const char* end, const TVPair& pair);

    EncoderTokens m_tokens;
    TokenFunctions<kvnencoder_t> m_funcs;
    std::vector<std::int32_t> m_suppressed; ///< numbers of the tokens that are left out
    std::int32_t appendHeader_ = 1;
    std::int32_t addPermToken_ = 0;
    char terminator_ = ETX; ///< stands in place of the last "|"
};

} // namespace KVNAPI
