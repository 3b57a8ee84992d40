#include "MessageText.h"

#include "ExitCode.h"

#include "kvnparse/EncodeText.h"
#include "kvnparse/FrameFormat.h"

#include <fmt/format.h>
#include <tp/te_error.h>

namespace tivra_wire {

using KVNAPI::TVPair;

namespace {

/// The name, or the number in place of one that would be read as another: a map file may name a token
/// anything.
const char* lineName(const KVNAPI::Token& token) {
    const std::string_view name(token.name);
    const bool isReadable =
        !name.empty() && name.find('=') == std::string_view::npos && !Dictionary::isNumber(name);
    return isReadable ? token.name : token.sid;
}

} // namespace

MessageText::MessageText(const Options& options, Dictionary& dictionary, Form from)
    : m_keepsBytes((from == Form::Vkvn) == (options.to == Form::Vkvn) && !options.hasBlanks)
    , m_toLines(options.to == Form::Vkvn)
    , m_dictionary(dictionary)
    , m_unknownToken(dictionary.find("UNKNOWNTOKEN"))
    , m_unknownValue(dictionary.find("UNKNOWNSVALUE"))
    , m_room(4096, '\0') {
    if (m_keepsBytes || (m_toLines && !options.hasBlanks) || options.to == Form::Json ||
        options.to == Form::Csv)
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

/// The number of a field that the dictionary lacks stands in a pair before that of its value. A stream may
/// also have fields of these tokens themselves.
bool MessageText::isUnknownField(const TVPair& number, const TVPair& value) const {
    if (number.token != m_unknownToken || value.token != m_unknownValue)
        return false;
    const std::string text(number.s.view());
    return Dictionary::isNumber(text) && m_dictionary.find(text) == nullptr;
}

/// The line that the parser of lines reads: full names, and "|" between the fields.
void MessageText::writeLine(const KVNAPI::Message& message) {
    m_text.clear();
    const int count = message.pairCount();
    for (int i = 0; i < count; ++i) {
        const TVPair* pair = message.pair(i);
        if (i + 1 < count && isUnknownField(*pair, *message.pair(i + 1))) {
            m_text.append(pair->s.view()) += '=';
            pair = message.pair(++i);
        } else {
            m_text.append(lineName(*pair->token)) += '=';
        }
        if (pair->token->storage == KVNAPI::Token::TY_STRING) {
            m_text.append(pair->s.view());
        } else {
            char number[KVNAPI::kNumberTextMax];
            m_text.append(number, KVNAPI::putValue(number, number + sizeof number, *pair));
        }
        m_text += '|';
    }
    m_text.back() = '\n';
}

void MessageText::checkEnds(const Frame& frame, char end) const {
    const std::size_t from = m_toLines ? 0 : KVNAPI::kKvnHeaderSize;
    if (m_text.find(end, from) == m_text.size() - 1)
        return;
    const std::size_t place = frame.bytes.find(end, m_toLines ? KVNAPI::kKvnHeaderSize : 0);
    throw Fault(frame.offset + (place == std::string_view::npos ? 0 : place),
                fmt::format("text that a {} can hold", m_toLines ? "line" : "frame"),
                fmt::format("the byte {} in a value", byteText(end)));
}

} // namespace tivra_wire
