#include "PlaybackTape.h"

#include "LoadMix.h"

#include "tivra_sim/TradingDay.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

namespace tivra_sim {

namespace {

constexpr std::size_t kTapeBlockSize = std::size_t{1} << 22;

double toNumber(std::string_view text) {
    double value = 0.0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

} // namespace

PlaybackTape::PlaybackTape(const Playback& playback) {
    if (playback.load.symbols > 0)
        recordLoad(playback);
    else if (playback.bodies)
        recordBodies(playback);
    else
        recordDay(playback);
}

void PlaybackTape::recordDay(const Playback& playback) {
    readTradingDay(playback.file, [&](const MarketEvent& event) {
        TapeEvent taped;
        taped.symbol = symbolNumber({playback.source, std::string(event.symbol)});
        taped.milliseconds = toNumber(event.milliseconds);
        taped.exchange = event.exchange.empty() ? '\0' : event.exchange[0];
        taped.isTrade = event.kind == 'T';
        taped.hasBid = !event.bid.empty() || !event.bidSize.empty();
        taped.hasAsk = !event.ask.empty() || !event.askSize.empty();
        keep(taped, encodeFrame(eventBody(event, playback.source, playback.midnight, m_events.size() + 1)));
        return playback.maxEvents == 0 || m_events.size() < playback.maxEvents;
    });
}

void PlaybackTape::recordBodies(const Playback& playback) {
    TimedBody message;
    while ((playback.maxEvents == 0 || m_events.size() < playback.maxEvents) && playback.bodies(message)) {
        bool isAnswer = false;
        static_cast<void>(findValue(message.body, token::TAG, &isAnswer));
        const double source = toNumber(findValue(message.body, token::SOURCE));
        const std::string_view symbol = findValue(message.body, token::SYMBOL);
        if (isAnswer || source < 1.0 || source > std::numeric_limits<int>::max() || symbol.empty()) {
            ++m_leftOut;
            continue;
        }
        TapeEvent taped;
        taped.isForeign = true;
        taped.symbol = symbolNumber({static_cast<int>(source), std::string(symbol)});
        taped.milliseconds = message.milliseconds;
        keep(taped, encodeFrame(message.body));
    }
}

void PlaybackTape::recordLoad(const Playback& playback) {
    LoadMix mix(playback);
    for (std::size_t i = 0; i < mix.count(); ++i) {
        const LoadMix::Message& message = mix.next();
        TapeEvent taped;
        taped.symbol = symbolNumber({playback.source, mix.symbolName(message.symbol)});
        taped.milliseconds = message.milliseconds;
        taped.isTrade = !message.isQuote;
        taped.hasBid = taped.hasAsk = message.isQuote;
        keep(taped, encodeFrame(message.body));
    }
}

std::uint32_t PlaybackTape::symbolNumber(TapeSymbol symbol) {
    const auto [number, isNew] =
        m_numbers.try_emplace(std::move(symbol), static_cast<std::uint32_t>(m_symbols.size()));
    if (isNew)
        m_symbols.push_back(number->first);
    return number->second;
}

void PlaybackTape::keep(TapeEvent event, std::string_view frame) {
    if (m_blocks.empty() || m_blocks.back()->size() + frame.size() > kTapeBlockSize) {
        m_blocks.push_back(std::make_unique<std::string>());
        m_blocks.back()->reserve(std::max(kTapeBlockSize, frame.size()));
    }
    std::string& block = *m_blocks.back();
    const std::size_t offset = block.size();
    block.append(frame);
    event.data = block.data() + offset;
    event.length = static_cast<std::uint32_t>(frame.size());
    event.sequence = m_events.size() + 1;
    m_events.push_back(event);
}

} // namespace tivra_sim
