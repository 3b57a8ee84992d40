// What the tests of the writers share: a dictionary with every token that is written in a way of its own, and
// messages of all kinds.
#pragma once

#include "ParserTestKit.h"

#include "kvnparse/Encoder.h"
#include "kvnparse/Parser.h"

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <string_view>

namespace kvnparse_test {

/// The tokens of TestMap and the dates and deletions: 30 and 31 (double dates), 32 (integer date) and
/// 33 (RECORD.DEL).
class EncoderMap : public TestMap {
public:
    EncoderMap() {
        add(30, "TRADE.DATETIME", KVNAPI::Token::TY_DOUBLE);
        add(31, "SETTLE.DATE", KVNAPI::Token::TY_DOUBLE);
        add(32, "CNF.TRADE.DATETIME", KVNAPI::Token::TY_INT);
        add(33, "RECORD.DEL", KVNAPI::Token::TY_INT);
    }
};

/// What became of an encoding: its bytes, "nothing", or the text of the error.
[[nodiscard]] std::string encoded(KVNAPI::Encoder& encoder, const KVNAPI::Message& message,
                                  std::size_t room = 8192);

/// Fills a message from the body of a frame.
void parseBody(KVNAPI::DataMap& map, std::string_view body, KVNAPI::Message& message);

/// Messages of all kinds whose text holds no byte of the format's own, so that they survive a way there and
/// back; the same ones for each seed.
class RandomMessages {
public:
    RandomMessages(KVNAPI::DataMap& map, unsigned seed) : m_map(map), m_random(seed) {}

    void fill(KVNAPI::Message& message);

private:
    [[nodiscard]] bool chance(unsigned percent) { return m_random() % 100 < percent; }
    [[nodiscard]] std::uint64_t below(std::uint64_t limit) { return m_random() % limit; }
    [[nodiscard]] std::int64_t integer();
    [[nodiscard]] double decimal();
    [[nodiscard]] std::string text(std::size_t longest);
    [[nodiscard]] KVNAPI::Exchange* exchange();
    void fillHeader(KVNAPI::Message& message);
    void addPair(KVNAPI::Message& message);
    void addText(KVNAPI::Message& message, KVNAPI::Token* token);

    KVNAPI::DataMap& m_map;
    std::mt19937_64 m_random;
};

} // namespace kvnparse_test
