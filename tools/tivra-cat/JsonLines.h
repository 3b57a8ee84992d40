#pragma once

#include "OutputFormat.h"

namespace tivra_cat {

/// One JSON object per message and line, answers to requests included.
class JsonLines : public OutputFormat {
public:
    void add(const Record& record, std::string& out) override;
};

} // namespace tivra_cat
