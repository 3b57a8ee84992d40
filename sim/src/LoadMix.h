#pragma once

#include "tivra_sim/HubConfig.h"

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_sim {

/// Makes the messages of Playback::load: of every hundred 74 quotes, 20 trades, 5 of many fields and a long
/// text, for symbols of which few are busy and most are not. The same for the same settings.
class LoadMix {
public:
    explicit LoadMix(const Playback& playback);

    struct Message {
        std::size_t symbol = 0;    ///< index, below Load::symbols
        double milliseconds = 0.0; ///< since the first
        bool isTrade = false;
        bool isQuote = false;
        std::string body;
    };

    /// How many make one round, after which they begin anew.
    [[nodiscard]] std::size_t count() const { return m_count; }
    [[nodiscard]] std::string symbolName(std::size_t symbol) const;
    /// The next one; valid until another is asked for.
    [[nodiscard]] const Message& next();

private:
    [[nodiscard]] std::size_t chooseSymbol();
    [[nodiscard]] std::string marketBody(std::string_view symbol, bool isTrade);
    [[nodiscard]] std::string wideBody(const std::string& symbol);
    [[nodiscard]] std::string longBody(const std::string& symbol);
    [[nodiscard]] unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

    const Playback& m_playback;
    const std::size_t m_count;
    std::mt19937 m_random{7};
    std::vector<int> m_cents; ///< the price of each symbol
    std::size_t m_made = 0;
    Message m_message;
};

} // namespace tivra_sim
