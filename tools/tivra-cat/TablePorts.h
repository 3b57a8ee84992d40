#pragma once

#include "OutputFormat.h"

namespace tivra_cat {

/// Which hub serves which source: one row per source and hub, with the patterns of the symbols that a hub has
/// of a source that several share.
class TablePorts : public OutputFormat {
public:
    void add(const Record& record, std::string& out) override;

private:
    bool m_isFirst = true;
};

} // namespace tivra_cat
