#include "tivra_sim/TradingDay.h"

#include "tivra_sim/Tokens.h"
#include "tivra_sim/Wire.h"

#include <zlib.h>

#include <array>
#include <charconv>
#include <memory>
#include <stdexcept>

namespace tivra_sim {

namespace {

constexpr std::string_view kHeader =
    "ms,symbol,kind,bid,bid_size,ask,ask_size,price,size,exchange,condition,suspicious";
constexpr std::size_t kColumns = 12;
constexpr std::size_t kBlockSize = std::size_t{1} << 18;
/// So that a file without line ends, or a small one that unpacks to anything, isn't read into memory whole.
constexpr std::size_t kLongestLine = std::size_t{1} << 16;

struct GzClose {
    void operator()(gzFile file) const { gzclose(file); }
};

/// Hands out the lines of a gzipped or plain file.
class LineReader {
public:
    explicit LineReader(const std::string& path) : m_path(path), m_file(gzopen(path.c_str(), "rbe")) {
        if (!m_file)
            throw std::runtime_error("cannot open the trading day \"" + path + "\"");
    }

    bool next(std::string_view& line) {
        for (;;) {
            const std::size_t end = m_buffer.find('\n', m_position);
            if (end != std::string::npos || m_atEnd) {
                if (m_position == m_buffer.size())
                    return false;
                const std::size_t stop = end == std::string::npos ? m_buffer.size() : end;
                line = std::string_view(m_buffer).substr(m_position, stop - m_position);
                if (!line.empty() && line.back() == '\r')
                    line.remove_suffix(1);
                m_position = end == std::string::npos ? stop : stop + 1;
                ++m_number;
                return true;
            }
            refill();
        }
    }

    [[nodiscard]] std::runtime_error error(const std::string& what) const {
        return std::runtime_error(m_path + ":" + std::to_string(m_number) + ": " + what);
    }

private:
    void refill() {
        if (m_buffer.size() - m_position > kLongestLine)
            throw error("a line is longer than " + std::to_string(kLongestLine) + " bytes");
        m_buffer.erase(0, m_position);
        m_position = 0;
        const std::size_t held = m_buffer.size();
        m_buffer.resize(held + kBlockSize);
        const int got = gzread(m_file.get(), m_buffer.data() + held, static_cast<unsigned>(kBlockSize));
        int code = Z_OK;
        const char* reason = gzerror(m_file.get(), &code);
        if (got < 0 || (got == 0 && code != Z_OK && code != Z_STREAM_END))
            throw error(std::string("cannot read on: ") + reason);
        m_buffer.resize(held + static_cast<std::size_t>(got));
        m_atEnd = got == 0;
    }

    std::string m_path;
    std::unique_ptr<gzFile_s, GzClose> m_file;
    std::string m_buffer;
    std::size_t m_position = 0;
    std::size_t m_number = 0;
    bool m_atEnd = false;
};

bool splitColumns(std::string_view line, std::array<std::string_view, kColumns>& columns) {
    for (std::size_t i = 0; i < kColumns; ++i) {
        const std::size_t comma = line.find(',');
        if ((comma == std::string_view::npos) != (i + 1 == kColumns))
            return false;
        columns[i] = line.substr(0, comma);
        line.remove_prefix(i + 1 == kColumns ? line.size() : comma + 1);
    }
    return true;
}

bool isWireText(std::string_view text) {
    return text.find_first_of("|\x03") == std::string_view::npos;
}

MarketEvent toEvent(const LineReader& reader, std::string_view line) {
    std::array<std::string_view, kColumns> column;
    if (!splitColumns(line, column))
        throw reader.error("a line must have " + std::to_string(kColumns) + " columns");
    if (column[2] != "Q" && column[2] != "T")
        throw reader.error("the kind must be Q or T");
    if (column[1].empty() || !isWireText(line))
        throw reader.error("a symbol is missing or a value holds a separator of the wire");
    if (column[0].empty() || column[0].find_first_not_of("0123456789.") != std::string_view::npos)
        throw reader.error("the milliseconds must be a number");
    return {column[0], column[1], column[2][0], column[3], column[4],  column[5],
            column[6], column[7], column[8],    column[9], column[10], column[11]};
}

/// Seconds since the epoch as text, to the last digit that the file gives.
std::string timeText(std::string_view milliseconds, std::int64_t midnight) {
    std::int64_t whole = 0;
    const auto [end, error] =
        std::from_chars(milliseconds.data(), milliseconds.data() + milliseconds.size(), whole);
    std::string text = std::to_string(midnight + whole / 1000);
    const std::string thousandths = std::to_string(1000 + whole % 1000);
    text.append(1, '.').append(thousandths, 1, 3);
    if (error == std::errc{} && end != milliseconds.data() + milliseconds.size() && *end == '.')
        text.append(end + 1, milliseconds.data() + milliseconds.size());
    return text;
}

void addIfPresent(Record& record, int token, std::string_view value) {
    if (!value.empty())
        record.add(token, value);
}

} // namespace

class TradingDayReader::Lines : public LineReader {
public:
    using LineReader::LineReader;
};

TradingDayReader::TradingDayReader(const std::string& path) : m_lines(std::make_unique<Lines>(path)) {
    std::string_view line;
    if (!m_lines->next(line) || line != kHeader)
        throw m_lines->error("the first line must be \"" + std::string(kHeader) + "\"");
}

TradingDayReader::TradingDayReader(TradingDayReader&&) noexcept = default;
TradingDayReader& TradingDayReader::operator=(TradingDayReader&&) noexcept = default;
TradingDayReader::~TradingDayReader() = default;

bool TradingDayReader::next(MarketEvent& event) {
    std::string_view line;
    do {
        if (!m_lines->next(line))
            return false;
    } while (line.empty());
    event = toEvent(*m_lines, line);
    return true;
}

std::size_t readTradingDay(const std::string& path, const std::function<bool(const MarketEvent&)>& handler) {
    TradingDayReader reader(path);
    MarketEvent event;
    std::size_t count = 0;
    while (reader.next(event)) {
        ++count;
        if (!handler(event))
            break;
    }
    return count;
}

std::string eventBody(const MarketEvent& event, int source, std::int64_t midnight, std::size_t sequence) {
    Record record(source, event.symbol);
    record.add(token::SEQUENCE, static_cast<long long>(sequence));
    const std::string time = timeText(event.milliseconds, midnight);
    if (event.kind == 'T') {
        record.add(token::TRADE_DATETIME, time);
        addIfPresent(record, token::TRADE_PRICE, event.price);
        addIfPresent(record, token::TRADE_SIZE, event.size);
        addIfPresent(record, token::TRADE_EXCHANGE, event.exchange);
        addIfPresent(record, token::TRADE_CONDITION, event.condition);
    } else {
        record.add(token::QUOTE_DATETIME, time);
        addIfPresent(record, token::BID, event.bid);
        addIfPresent(record, token::BID_SIZE, event.bidSize);
        addIfPresent(record, token::ASK, event.ask);
        addIfPresent(record, token::ASK_SIZE, event.askSize);
        addIfPresent(record, token::QUOTE_EXCHANGE, event.exchange);
        addIfPresent(record, token::QUOTE_CONDITION, event.condition);
    }
    addIfPresent(record, token::SUSPICIOUS, event.suspicious);
    return record.body();
}

} // namespace tivra_sim
