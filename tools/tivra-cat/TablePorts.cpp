#include "TablePorts.h"

#include "ValueText.h"

#include <fmt/format.h>

#include <iterator>
#include <vector>

namespace tivra_cat {

namespace {

constexpr int kHostToken = 13001;
constexpr int kPortToken = 13101;

struct HubRow {
    std::string address;
    std::string patterns;
};

/// Each hub of a message is its address, its port and its patterns, in this order.
std::vector<HubRow> hubsOf(const Record& record) {
    std::vector<HubRow> hubs;
    for (const Field& field : record.fields) {
        const std::string text = printable(field.text);
        if (field.token == kHostToken)
            hubs.push_back({text, {}});
        else if (hubs.empty())
            continue;
        else if (field.token == kPortToken)
            hubs.back().address += ":" + text;
        else if (field.token == tivra::SYMBOL_TICKER)
            hubs.back().patterns += "  " + text;
    }
    return hubs;
}

} // namespace

void TablePorts::add(const Record& record, std::string& out) {
    if (!record.hasData())
        return;
    if (m_isFirst)
        out += "source  hub                    symbols\n";
    m_isFirst = false;
    for (const HubRow& hub : hubsOf(record))
        fmt::format_to(std::back_inserter(out), "{:>6}  {:<21}{}\n", record.source, hub.address,
                       hub.patterns.empty() ? "  all" : hub.patterns);
}

} // namespace tivra_cat
