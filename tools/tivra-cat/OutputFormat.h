#pragma once

#include "Record.h"

#include <chrono>
#include <string>

namespace tivra_cat {

/// Turns records into text. Used by the writer's thread alone.
class OutputFormat {
public:
    OutputFormat() = default;
    OutputFormat(const OutputFormat&) = delete;
    OutputFormat& operator=(const OutputFormat&) = delete;
    virtual ~OutputFormat() = default;

    /// Appends what is to be printed for the record now.
    virtual void add(const Record& record, std::string& out) = 0;
    /// Appends what is due at `now`; called a few times per second.
    virtual void tick(std::chrono::steady_clock::time_point, std::string&) {}
    /// Appends what was held back; the last call.
    virtual void finish(std::string&) {}
};

} // namespace tivra_cat
