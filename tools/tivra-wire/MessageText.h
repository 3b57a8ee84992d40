#pragma once

#include "Dictionary.h"
#include "Frame.h"
#include "Options.h"

#include "kvnparse/Encoder.h"
#include "kvnparse/Message.h"

#include <memory>
#include <string>
#include <string_view>

namespace tivra_wire {

/// Gives messages the form that the options ask for. A message that has that form already keeps its bytes.
class MessageText {
public:
    /// Throws Failure with ExitCode::Usage when the dictionary lacks what the encoder needs.
    MessageText(const Options& options, Dictionary& dictionary, Form from);

    /// Valid until the next one. Throws Fault for a text that the form can't hold.
    [[nodiscard]] std::string_view of(const Frame& frame, const KVNAPI::Message& message);

private:
    void encode(const KVNAPI::Message& message);
    [[nodiscard]] bool isUnknownField(const KVNAPI::TVPair& number, const KVNAPI::TVPair& value) const;
    void writeLine(const KVNAPI::Message& message);
    void checkEnds(const Frame& frame, char end) const;

    const bool m_keepsBytes;
    const bool m_toLines;
    const Dictionary& m_dictionary;
    const KVNAPI::Token* const m_unknownToken;
    const KVNAPI::Token* const m_unknownValue;
    std::unique_ptr<KVNAPI::Encoder> m_encoder; ///< null for lines that can be read again
    std::string m_text;
    std::string m_room;
};

} // namespace tivra_wire
