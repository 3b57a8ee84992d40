#include "bus/BatchFields.h"

#include "bus/JsonText.h"
#include "bus/TypeNames.h"

#include <cstring>

namespace tivra_bus {

namespace {

constexpr std::string_view kLineBegin = R"({"fields":{)";
constexpr std::string_view kLineEnd = "}}\n";
/// Messages with a field of a higher number are written as text.
constexpr std::uint32_t kMostNumber = 65'535;

/// Reads the number of the field that begins at `from`. @return after its "=", null where there is none
const char* numberAt(const char* from, const char* end, std::uint32_t& number) {
    number = 0;
    const char* at = from;
    for (; at != end && *at >= '0' && *at <= '9' && number <= kMostNumber; ++at)
        number = number * 10 + static_cast<std::uint32_t>(*at - '0');
    return at != from && at != end && *at == '=' ? at + 1 : nullptr;
}

} // namespace

bool BatchFields::add(const tivra::FieldNumbers& numbers, std::string_view body) {
    if (m_numbers.empty())
        m_dictionary = numbers.id();
    else if (m_dictionary != numbers.id())
        return false;
    const char* const end = body.data() + body.size();
    for (const char* at = body.data();;) {
        std::uint32_t number = 0;
        at = numberAt(at, end, number);
        if (at == nullptr || !add(numbers, number))
            return false;
        at = static_cast<const char*>(std::memchr(at, '|', static_cast<std::size_t>(end - at)));
        if (at == nullptr)
            return true;
        ++at;
    }
}

bool BatchFields::add(const tivra::FieldNumbers& numbers, std::uint32_t number) {
    if (number < m_isIn.size() && m_isIn[number])
        return true;
    if (number > kMostNumber)
        return false;
    const auto meaning = numbers.find(static_cast<int>(number));
    if (!meaning)
        return false;
    if (number >= m_isIn.size())
        m_isIn.resize(number + 1);
    m_isIn[number] = true;
    m_numbers.push_back(number);
    m_text += R"(,")";
    appendNumber(m_text, number);
    m_text += R"(":[)";
    appendQuoted(m_text, meaning->name);
    m_text += R"(,")";
    m_text += nameOf(meaning->type);
    m_text += R"("])";
    return true;
}

std::string BatchFields::line() const {
    std::string line(kLineBegin);
    line.append(m_text, m_text.empty() ? 0 : 1);
    line += kLineEnd;
    return line;
}

std::size_t BatchFields::lineBytes() const {
    return m_text.empty() ? 0 : kLineBegin.size() + m_text.size() + kLineEnd.size();
}

void BatchFields::clear() {
    for (const std::uint32_t number : m_numbers)
        m_isIn[number] = false;
    m_numbers.clear();
    m_text.clear();
}

} // namespace tivra_bus
