#include "captures/FieldScan.h"

#include <charconv>

namespace tivra_python {

namespace {

constexpr std::size_t kSmall = 65536;

} // namespace

FieldScan::FieldScan() : m_isKnown(kSmall) {}

void FieldScan::add(std::string_view body) {
    while (!body.empty()) {
        int number = 0;
        const char* const end = body.data() + body.size();
        const auto [stop, error] = std::from_chars(body.data(), end, number);
        if (error == std::errc{} && stop != end && *stop == '=' && number > 0)
            note(number, stop + 1 == end || stop[1] == '|');
        const std::size_t bar = body.find('|');
        body.remove_prefix(bar == std::string_view::npos ? body.size() : bar + 1);
    }
}

void FieldScan::note(int number, bool isEmpty) {
    if (isEmpty && m_emptied.size() < kMaxFields)
        m_emptied.insert(number);
    const auto index = static_cast<std::size_t>(number);
    if (index < kSmall) {
        if (m_isKnown[index])
            return;
        m_isKnown[index] = true;
    }
    if (m_numbers.size() < kMaxFields)
        m_numbers.insert(number);
    else
        m_isOverflown = m_isOverflown || m_numbers.count(number) == 0;
}

} // namespace tivra_python
