#pragma once

#include "bus/SendResult.h"

#include <cstdint>
#include <utility>
#include <vector>

/// Keeps what it is told.
class Results : public tivra_bus::SendListener {
public:
    void sent(std::uint64_t tag, const tivra_bus::SendResult& result) override {
        results.emplace_back(tag, result.outcome);
    }

    std::vector<std::pair<std::uint64_t, tivra_bus::SendResult::Outcome>> results;
};
