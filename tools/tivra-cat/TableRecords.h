#pragma once

#include "OutputFormat.h"

namespace tivra_cat {

/// A message as a block: its source and symbol, then one line per field with number, name and value.
class TableRecords : public OutputFormat {
public:
    explicit TableRecords(bool isColored) : m_isColored(isColored) {}

    void add(const Record& record, std::string& out) override;

private:
    const bool m_isColored;
    bool m_isFirst = true;
};

} // namespace tivra_cat
