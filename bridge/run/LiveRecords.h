#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tivra_bus {

/// Single records that wait to be published, up to a limit. @thread one at a time
class LiveRecords {
public:
    struct Record {
        int source = 0;
        std::string symbol;
        std::string text;
    };

    /// @return false when there is no room for it
    [[nodiscard]] bool add(int source, std::string_view symbol, std::string_view text) {
        if (m_bytes + text.size() > kMostBytes)
            return false;
        m_bytes += text.size();
        m_records.push_back({source, std::string(symbol), std::string(text)});
        return true;
    }
    [[nodiscard]] std::vector<Record> takeAll() {
        m_bytes = 0;
        return std::exchange(m_records, {});
    }

private:
    static constexpr std::size_t kMostBytes = 4U << 20;

    std::vector<Record> m_records;
    std::size_t m_bytes = 0;
};

} // namespace tivra_bus
