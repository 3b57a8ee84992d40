#include "TableRecords.h"

#include "ValueText.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace tivra_cat {

void TableRecords::add(const Record& record, std::string& out) {
    if (!record.hasData())
        return;
    if (!m_isFirst)
        out.push_back('\n');
    m_isFirst = false;
    if (!record.symbol.empty() || record.source != 0) {
        std::string title = printable(record.symbol);
        if (record.source != 0)
            title += fmt::format("{}source {}", title.empty() ? "" : "  ", record.source);
        out += m_isColored ? fmt::format("\x1b[1m{}\x1b[0m\n", title) : title + "\n";
    }
    std::size_t width = 0;
    for (const Field& field : record.fields)
        width = std::max(width, printable(*field.name).size());
    for (const Alternate& alternate : record.alternates)
        width = std::max(width, printable(alternate.name).size());
    for (const Field& field : record.fields)
        fmt::format_to(std::back_inserter(out), "  {:>5}  {:<{}}  {}\n", field.token, printable(*field.name),
                       width, readableValue(field));
    for (const Alternate& alternate : record.alternates)
        fmt::format_to(std::back_inserter(out), "  index  {:<{}}  {}\n", printable(alternate.name), width,
                       printable(alternate.value));
}

} // namespace tivra_cat
