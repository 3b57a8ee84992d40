#pragma once

#include "tivra_sim/HubConfig.h"
#include "tivra_sim/Wire.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_sim {

/// One event of a day as the frame that goes out for it.
struct TapeEvent {
    const char* data = nullptr;
    std::uint32_t length = 0;
    std::uint32_t symbol = 0; ///< index in PlaybackTape::symbols
    bool isForeign = false;   ///< one of Playback::bodies, of which nothing below but the time is known
    std::uint64_t sequence = 0;
    double milliseconds = 0.0;
    char exchange = 0;
    bool isTrade = false;
    bool hasBid = false;
    bool hasAsk = false;

    [[nodiscard]] std::string_view frame() const { return {data, length}; }
    [[nodiscard]] std::string_view body() const {
        return frame().substr(FRAME_OVERHEAD - 1, length - FRAME_OVERHEAD);
    }
};

/// A symbol that a tape has events of.
struct TapeSymbol {
    int source = 0;
    std::string symbol;

    [[nodiscard]] bool operator<(const TapeSymbol& other) const {
        return source != other.source ? source < other.source : symbol < other.symbol;
    }
};

/// A trading day, or messages from elsewhere, in memory, every frame encoded, so that playing it is copying.
/// Never changed once loaded.
class PlaybackTape {
public:
    /// Throws std::runtime_error when the file cannot be read.
    explicit PlaybackTape(const Playback& playback);

    [[nodiscard]] const std::vector<TapeEvent>& events() const { return m_events; }
    [[nodiscard]] const std::vector<TapeSymbol>& symbols() const { return m_symbols; }
    /// Messages that nobody can have subscribed.
    [[nodiscard]] std::uint64_t leftOut() const { return m_leftOut; }

private:
    void recordDay(const Playback& playback);
    void recordBodies(const Playback& playback);
    void recordLoad(const Playback& playback);
    [[nodiscard]] std::uint32_t symbolNumber(TapeSymbol symbol);
    void keep(TapeEvent event, std::string_view frame);

    std::vector<TapeEvent> m_events;
    std::vector<TapeSymbol> m_symbols;
    std::map<TapeSymbol, std::uint32_t> m_numbers; ///< of m_symbols
    std::uint64_t m_leftOut = 0;
    /// Blocks whose bytes never move; each frame lies in one of them.
    std::vector<std::unique_ptr<std::string>> m_blocks;
};

} // namespace tivra_sim
