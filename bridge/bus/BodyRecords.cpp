#include "bus/BodyRecords.h"

#include "bus/JsonText.h"

namespace tivra_bus {

void BodyRecords::append(std::string& out, const ValuesRecord& record, BatchFields& fields) const {
    const std::string_view body = record.update != nullptr ? record.update->body() : std::string_view();
    if (record.update == nullptr || body.empty() || !fields.add(record.update->numbers(), body)) {
        m_text.append(out, record, fields);
        return;
    }
    out += R"({"type":")";
    out += nameOf(record.type);
    out += '"';
    out += record.name.text;
    out += R"(,"n":)";
    appendNumber(out, record.number);
    out += R"(,"body":)";
    appendNumber(out, body.size());
    out += "}\n";
    out += body;
    out += '\n';
}

} // namespace tivra_bus
