#pragma once

#include "OutputFormat.h"

namespace tivra_cat {

/// One line per message of number=value pairs with "|" between them: permission, source, symbol, tag and
/// status first, then the fields in the order in which they came.
class RawPairs : public OutputFormat {
public:
    void add(const Record& record, std::string& out) override;
};

} // namespace tivra_cat
