#include "PlaybackTape.h"

#include "tivra_sim/TradingDay.h"

#include <algorithm>
#include <charconv>
#include <unordered_map>

namespace tivra_sim {

namespace {

constexpr std::size_t BLOCK_SIZE = std::size_t{1} << 22;

double toNumber(std::string_view text) {
    double value = 0.0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

} // namespace

PlaybackTape::PlaybackTape(const Playback& playback) {
    std::unordered_map<std::string, std::uint32_t> numbers;
    readTradingDay(playback.file, [&](const MarketEvent& event) {
        const auto [number, isNew] =
            numbers.try_emplace(std::string(event.symbol), static_cast<std::uint32_t>(m_symbols.size()));
        if (isNew)
            m_symbols.emplace_back(event.symbol);
        TapeEvent taped;
        taped.sequence = m_events.size() + 1;
        const std::string frame =
            encodeFrame(eventBody(event, playback.source, playback.midnight, m_events.size() + 1));
        taped.data = keep(frame);
        taped.length = static_cast<std::uint32_t>(frame.size());
        taped.symbol = number->second;
        taped.milliseconds = toNumber(event.milliseconds);
        taped.exchange = event.exchange.empty() ? '\0' : event.exchange[0];
        taped.isTrade = event.kind == 'T';
        taped.hasBid = !event.bid.empty() || !event.bidSize.empty();
        taped.hasAsk = !event.ask.empty() || !event.askSize.empty();
        m_events.push_back(taped);
        return playback.maxEvents == 0 || m_events.size() < playback.maxEvents;
    });
}

const char* PlaybackTape::keep(std::string_view frame) {
    if (m_blocks.empty() || m_blocks.back()->size() + frame.size() > BLOCK_SIZE) {
        m_blocks.push_back(std::make_unique<std::string>());
        m_blocks.back()->reserve(std::max(BLOCK_SIZE, frame.size()));
    }
    std::string& block = *m_blocks.back();
    const std::size_t offset = block.size();
    block.append(frame);
    return block.data() + offset;
}

} // namespace tivra_sim
