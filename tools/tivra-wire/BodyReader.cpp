#include "BodyReader.h"

#include "ExitCode.h"

#include <fmt/format.h>
#include <tp/te_error.h>

#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace tivra_wire {

BodyReader::BodyReader(Dictionary& dictionary, Form form) : m_form(form) {
    if (m_parse.setMetaMap(&dictionary.map()) != 0)
        throw Failure(ExitCode::Usage, fmt::format("the dictionary cannot be used: {}; add it to a map file",
                                                   tp::te_geterror()));
    set("ParseIntoHeader", "0");
    if (form == Form::Vkvn) {
        set("SetEOL", "10");
        set("AllowVerboseToken", "1");
        set("HasKVNHeader", "0");
    }
}

void BodyReader::set(const char* option, const char* value) {
    if (m_parse.setOption(option, value) != 0)
        throw std::logic_error(option);
}

void BodyReader::read(const Frame& frame, KVNAPI::Message& message) {
    if (m_parse.parse(KVNAPI::bufref(frame.bytes.data(), frame.bytes.size()), &message) != 0)
        throw faultIn(frame);
}

/// The library tells "Parser error around pos N('c'): reason" and the frame.
Fault BodyReader::faultIn(const Frame& frame) const {
    const std::string_view text = tp::te_geterror();
    const std::size_t number = text.find("pos ");
    if (number == std::string_view::npos)
        throw std::logic_error(std::string(text));
    const auto position = static_cast<std::size_t>(std::strtoul(text.data() + number + 4, nullptr, 10));
    std::string found = "the end of the frame";
    if (frame.lacksEnd && position + 1 == frame.bytes.size())
        found = kEndOfInput;
    else if (position < frame.bytes.size())
        found = byteText(frame.bytes[position]);
    std::string expected = "the end of the frame behind its end byte";
    if (text.find("): Invalid token") != std::string_view::npos)
        expected = m_form == Form::Vkvn ? "a token's name or number and \"=\"" : "a token's number and \"=\"";
    else if (text.find("): Invalid value") != std::string_view::npos)
        expected = "\"|\" or the end of the message behind a value";
    return {frame.offset + position, expected, found};
}

} // namespace tivra_wire
