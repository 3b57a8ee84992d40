#pragma once

#include "captures/MessageSource.h"

#include <tivra_sim/TradingDay.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace tivra_python {

/// The events of a trading-day file as the messages in which a hub sends them.
class DaySource final : public MessageSource {
public:
    /// @param midnight  of the day, in seconds since 1970-01-01 00:00 UTC
    /// Throws FileFault.
    DaySource(const std::string& path, int source, std::int64_t midnight);

    [[nodiscard]] bool next(SourceMessage& message) override;

private:
    tivra_sim::TradingDayReader m_reader;
    const int m_source;
    const std::int64_t m_midnight;
    std::size_t m_events = 0;
    std::string m_body;
};

} // namespace tivra_python
