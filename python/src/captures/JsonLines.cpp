#include "captures/JsonLines.h"

#include "captures/FileFault.h"

#include <api/MetricText.h>

#include <charconv>
#include <cmath>

namespace tivra_python {
namespace {

[[nodiscard]] bool needsEscape(std::string_view text) noexcept {
    for (const char c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\')
            return true;
    return false;
}

template<class Number>
void append(std::string& text, Number value) {
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    text.append(digits, end);
}

} // namespace

const std::string& JsonLines::write(const ArrowSchema& schema, const ArrowArray& array) {
    if (schema.n_children != array.n_children)
        throw FileFault("the rows and their schema don't belong together");
    std::vector<Entry> entries;
    for (std::int64_t i = 0; i < schema.n_children; ++i) {
        const ArrowCells cells(*schema.children[i], *array.children[i]);
        if (cells.kind() == ArrowCells::Kind::Other)
            throw FileFault("the column \"" + std::string(cells.name()) + "\" is of a type that has no JSON");
        entries.push_back({cells, '"' + tivra_internal::jsonEscaped(cells.name()) + "\": "});
    }
    m_text.clear();
    for (std::int64_t row = 0; row < array.length; ++row) {
        m_text.push_back('{');
        const std::size_t begin = m_text.size();
        for (const Entry& entry : entries) {
            if (entry.cells.isNull(row))
                continue;
            if (m_text.size() != begin)
                m_text.append(", ");
            m_text.append(entry.key);
            put(entry, row);
        }
        m_text.append("}\n");
    }
    return m_text;
}

void JsonLines::put(const Entry& entry, std::int64_t row) {
    switch (entry.cells.kind()) {
    case ArrowCells::Kind::Int32:
    case ArrowCells::Kind::Int64:
        append(m_text, entry.cells.integer(row));
        break;
    case ArrowCells::Kind::Double:
        putNumber(entry.cells.number(row));
        break;
    case ArrowCells::Kind::Bool:
        m_text.append(entry.cells.boolean(row) ? "true" : "false");
        break;
    case ArrowCells::Kind::Time:
        m_text.append(1, '"').append(m_time.of(entry.cells.integer(row)), TimeText::kLength).append(1, '"');
        break;
    case ArrowCells::Kind::Text:
        putText(entry.cells.text(row));
        break;
    case ArrowCells::Kind::Other:
        break;
    }
}

/// A whole number keeps a fraction, so that readers find the same type in all rows.
void JsonLines::putNumber(double value) {
    if (!std::isfinite(value)) {
        m_text.append("null");
        return;
    }
    const std::size_t begin = m_text.size();
    append(m_text, value);
    if (m_text.find_first_of(".e", begin) == std::string::npos)
        m_text.append(".0");
}

void JsonLines::putText(std::string_view value) {
    m_text.push_back('"');
    if (needsEscape(value))
        m_text.append(tivra_internal::jsonEscaped(value));
    else
        m_text.append(value);
    m_text.push_back('"');
}

} // namespace tivra_python
