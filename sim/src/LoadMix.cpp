#include "LoadMix.h"

#include "tivra_sim/Tokens.h"
#include "tivra_sim/TradingDay.h"
#include "tivra_sim/Wire.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tivra_sim {

namespace {

/// Enough for a mix, few enough to be in memory twice.
constexpr std::size_t kLeast = 10000;
constexpr std::size_t kMost = 262144;

std::size_t roundLength(const Load& load) {
    const std::size_t second = static_cast<std::size_t>(std::clamp(load.rate, 1.0, 1e9));
    return std::max(std::clamp(second, kLeast, kMost), std::min(2 * load.symbols, 4 * kMost));
}

std::string priceText(int cents) {
    char text[24];
    std::snprintf(text, sizeof text, "%d.%02d", cents / 100, cents % 100);
    return text;
}

} // namespace

LoadMix::LoadMix(const Playback& playback)
    : m_playback(playback), m_count(roundLength(playback.load)), m_cents(playback.load.symbols) {
    for (int& cents : m_cents)
        cents = 500 + static_cast<int>(below(50000));
}

std::string LoadMix::symbolName(std::size_t symbol) const {
    char text[24];
    std::snprintf(text, sizeof text, "LOAD%06zu", symbol);
    return text;
}

const LoadMix::Message& LoadMix::next() {
    const Load& load = m_playback.load;
    const std::size_t burst = std::max<std::size_t>(load.burst, 1);
    m_message.symbol = chooseSymbol();
    m_message.milliseconds = static_cast<double>(m_made / burst * burst) / load.rate * 1e3;
    const std::string symbol = symbolName(m_message.symbol);
    const unsigned kind = below(100);
    m_message.isTrade = kind >= 74 && kind < 94;
    m_message.isQuote = kind < 74;
    ++m_made;
    if (m_message.isTrade || m_message.isQuote)
        m_message.body = marketBody(symbol, m_message.isTrade);
    else
        m_message.body = kind < 99 ? wideBody(symbol) : longBody(symbol);
    return m_message;
}

/// The square of a chance: a tenth of the symbols has a third of the messages. The first round names each
/// once.
std::size_t LoadMix::chooseSymbol() {
    const std::size_t symbols = m_playback.load.symbols;
    if (m_made < symbols)
        return m_made;
    const double chance = static_cast<double>(m_random()) / 4294967296.0;
    return std::min(symbols - 1, static_cast<std::size_t>(chance * chance * static_cast<double>(symbols)));
}

std::string LoadMix::marketBody(std::string_view symbol, bool isTrade) {
    int& cents = m_cents[m_message.symbol];
    cents = std::clamp(cents + static_cast<int>(below(7)) - 3, 100, 100000);
    const std::string low = priceText(cents);
    const std::string high = priceText(cents + 1 + static_cast<int>(below(5)));
    const std::string size = std::to_string(100 * (1 + below(50)));
    const std::string time = std::to_string(34200000 + static_cast<long>(m_message.milliseconds));
    const char exchange[2] = {static_cast<char>('A' + below(26)), '\0'};
    MarketEvent event;
    event.milliseconds = time;
    event.symbol = symbol;
    event.kind = isTrade ? 'T' : 'Q';
    event.exchange = exchange;
    if (isTrade) {
        event.price = low;
        event.size = size;
    } else {
        event.bid = low;
        event.bidSize = size;
        event.ask = high;
        event.askSize = size;
    }
    return eventBody(event, m_playback.source, m_playback.midnight, m_made);
}

/// Both sides and the last trade at once, as a summary of the day has them.
std::string LoadMix::wideBody(const std::string& symbol) {
    const std::string price = priceText(m_cents[m_message.symbol]);
    const int size = 100 * static_cast<int>(1 + below(50));
    Record record(m_playback.source, symbol);
    record.add(token::SEQUENCE, static_cast<long long>(m_made))
        .add(token::BID, price)
        .add(token::BID_SIZE, size)
        .add(token::ASK, price)
        .add(token::ASK_SIZE, size)
        .add(token::QUOTE_EXCHANGE, "N")
        .add(token::QUOTE_CONDITION, 1)
        .add(token::TRADE_PRICE, price)
        .add(token::TRADE_SIZE, size)
        .add(token::TRADE_EXCHANGE, "N")
        .add(token::TRADE_CONDITION, 1)
        .add(token::SUSPICIOUS, 0)
        .add(token::QUOTE_DATETIME, static_cast<long long>(m_playback.midnight) + 34200)
        .add(token::TRADE_DATETIME, static_cast<long long>(m_playback.midnight) + 34200);
    return record.body();
}

std::string LoadMix::longBody(const std::string& symbol) {
    std::string text;
    while (text.size() < 1000 + below(2000))
        text += "the quick brown fox jumps over the lazy dog ";
    Record record(m_playback.source, symbol);
    record.add(token::SEQUENCE, static_cast<long long>(m_made)).add(token::SYMBOL_NAME, text);
    return record.body();
}

} // namespace tivra_sim
