#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace tivra_sim {

/// One line of a trading-day file. Every view is the text of the file; an absent value is empty.
struct MarketEvent {
    std::string_view milliseconds; ///< since midnight of the exchange's day
    std::string_view symbol;
    char kind = 'Q'; ///< 'Q' quote, 'T' trade
    std::string_view bid;
    std::string_view bidSize;
    std::string_view ask;
    std::string_view askSize;
    std::string_view price;
    std::string_view size;
    std::string_view exchange;
    std::string_view condition;
    std::string_view suspicious;
};

/// Reads a trading-day file, gzipped or plain, event by event. Throws std::runtime_error with the file's name
/// and the line's number when the file cannot be read or a line does not have the columns. One thread at a
/// time.
class TradingDayReader {
public:
    explicit TradingDayReader(const std::string& path);
    TradingDayReader(TradingDayReader&& other) noexcept;
    TradingDayReader& operator=(TradingDayReader&& other) noexcept;
    ~TradingDayReader();

    /// The next event, whose views are valid until the next call; false behind the last.
    [[nodiscard]] bool next(MarketEvent& event);

private:
    class Lines;
    std::unique_ptr<Lines> m_lines;
};

/// Reads a trading-day file, gzipped or plain, and calls `handler` for each event in order until it returns
/// false. The views are valid during the call only. Returns the number of events handed out. Throws
/// std::runtime_error with the file's name and the line's number when the file cannot be read or a line does
/// not have the columns.
std::size_t readTradingDay(const std::string& path, const std::function<bool(const MarketEvent&)>& handler);

/// The body in which the hub sends an event that stands at `sequence` (from 1) of its file.
[[nodiscard]] std::string eventBody(const MarketEvent& event, int source, std::int64_t midnight,
                                    std::size_t sequence);

} // namespace tivra_sim
