#include "MessageText.h"

#include "ExitCode.h"

#include "kvnparse/EncodeText.h"
#include "kvnparse/FrameFormat.h"

#include <fmt/format.h>
#include <tp/te_error.h>

namespace tivra_wire {

using KVNAPI::TVPair;

MessageText::MessageText(const Options& options, Dictionary& dictionary, Form from)
    : m_keepsBytes((from == Form::Vkvn) == (options.to == Form::Vkvn) && !options.hasBlanks)
    , m_toLines(options.to == Form::Vkvn)
    , m_dictionary(dictionary)
    , m_room(4096, '\0') {
    if (m_keepsBytes || (m_toLines && !options.hasBlanks))
        return;
    m_encoder = KVNAPI::Encoder::alloc(m_toLines ? "vkvn" : "kvn", &dictionary.map());
    if (m_encoder == nullptr)
        throw Failure(ExitCode::Usage, fmt::format("the dictionary cannot be used: {}; add it to a map file",
                                                   tp::te_geterror()));
}

std::string_view MessageText::of(const Frame& frame, const KVNAPI::Message& message) {
    if (m_keepsBytes)
        return frame.bytes;
    if (m_encoder != nullptr)
        encode(message);
    else
        writeLine(message);
    checkEnds(frame, m_toLines ? '\n' : KVNAPI::ETX);
    return m_text;
}

void MessageText::encode(const KVNAPI::Message& message) {
    for (;;) {
        KVNAPI::bufref out(m_room.data(), m_room.size());
        if (m_encoder->encode(&out, &message) >= 0) {
            m_text.assign(out.buf, out.len);
            return;
        }
        m_room.resize(2 * m_room.size());
    }
}

/// The line that the parser of lines reads: full names, and "|" between the fields.
void MessageText::writeLine(const KVNAPI::Message& message) {
    m_text.clear();
    const KVNAPI::Token* const unknownToken = m_dictionary.find("UNKNOWNTOKEN");
    const KVNAPI::Token* const unknownValue = m_dictionary.find("UNKNOWNSVALUE");
    const KVNAPI::Token* last = nullptr;
    KVNAPI::Message::iterator pairs(&message);
    while (const TVPair* const pair = pairs.next()) {
        // The number of a field that the dictionary lacks stands in a pair before that of its value.
        const bool isValueOfUnknown = pair->token == unknownValue && last == unknownToken;
        last = pair->token;
        if (pair->token == unknownToken) {
            m_text.append(pair->s.view()) += '=';
            continue;
        }
        if (!isValueOfUnknown)
            m_text.append(pair->token->name) += '=';
        if (pair->token->storage == KVNAPI::Token::TY_STRING) {
            m_text.append(pair->s.view());
        } else {
            char number[KVNAPI::NUMBER_TEXT_MAX];
            m_text.append(number, KVNAPI::putValue(number, number + sizeof number, *pair));
        }
        m_text += '|';
    }
    m_text.back() = '\n';
}

void MessageText::checkEnds(const Frame& frame, char end) const {
    const std::size_t from = m_toLines ? 0 : KVNAPI::KVN_HEADER_SIZE;
    if (m_text.find(end, from) == m_text.size() - 1)
        return;
    throw Fault(frame.offset, fmt::format("text that a {} can hold", m_toLines ? "line" : "frame"),
                fmt::format("the byte {} in a value", byteText(end)));
}

} // namespace tivra_wire
