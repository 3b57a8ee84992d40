#include "EncoderTestKit.h"

#include "kvnparse/NumberDecode.h"

#include <tp/te_error.h>

#include <gtest/gtest.h>

#include <limits>

namespace kvnparse_test {

using namespace KVNAPI;

std::string encoded(Encoder& encoder, const Message& message, std::size_t room) {
    std::string bytes(room, '?');
    bufref out(bytes.data(), bytes.size());
    const int result = encoder.encode(&out, &message);
    if (result == 0)
        return bytes.substr(0, out.len);
    if (result == 1)
        return out.len == 0 ? "nothing" : "a length without bytes";
    return out.len == room ? tp::te_geterror() : "a length after a failure";
}

void parseBody(DataMap& map, std::string_view body, Message& message) {
    const std::string frame = frameOf(body);
    const auto parser = Parser::alloc("kvn", &map, 65536);
    ASSERT_NE(parser, nullptr);
    parser->push(bufref(frame.data(), frame.size()));
    ASSERT_EQ(parser->pull(&message), 0) << tp::te_geterror();
    message.copyStrings();
}

std::int64_t RandomMessages::integer() {
    switch (below(4)) {
    case 0:
        return static_cast<std::int64_t>(below(20)) - 10;
    case 1:
        return std::numeric_limits<std::int64_t>::min() + static_cast<std::int64_t>(below(2));
    default:
        return static_cast<std::int64_t>(m_random()) >> below(64);
    }
}

double RandomMessages::decimal() {
    // Fewer digits than the writer keeps: 15, at most nine of them behind the point.
    const std::uint64_t decimals = below(10);
    std::string number = chance(30) ? "-" : "";
    number += std::to_string(m_random() >> (14 + below(50)) & 99'999'999'999'999 >> (decimals * 7 / 2));
    if (decimals != 0) {
        // Zeros behind the last digit would be read as another, nearly equal number.
        number += '.';
        for (std::uint64_t i = 1; i < decimals; ++i)
            number += static_cast<char>('0' + below(10));
        number += static_cast<char>('1' + below(9));
    }
    const char* const end = number.data() + number.size();
    // The writer does not tell the zero with a sign from the other.
    return _atod(number.data(), end).d + 0.0;
}

std::string RandomMessages::text(std::size_t longest) {
    std::string bytes(chance(90) ? below(12) : below(longest), ' ');
    for (char& byte : bytes) {
        do
            byte = static_cast<char>(m_random());
        while (byte == '|' || byte == '\x03');
    }
    return bytes;
}

Exchange* RandomMessages::exchange() {
    const auto id = static_cast<std::int32_t>(static_cast<std::int64_t>(m_random()) >> (32 + below(31)));
    return m_map.lookupExchange(id);
}

void RandomMessages::addText(Message& message, Token* token) {
    const std::string bytes = text(300);
    message.addCopyStr(token, bufref(bytes.data(), bytes.size()));
}

void RandomMessages::fillHeader(Message& message) {
    if (chance(50))
        message.permission = exchange();
    if (chance(50))
        message.exchange = exchange();
    if (chance(50))
        message.market = static_cast<char>('A' + below(26));
    if (chance(70)) {
        const std::string symbol = text(200);
        char* const area = message.verifyArea(symbol.size());
        symbol.copy(area, symbol.size());
        message.symbol = bufref(area, symbol.size());
        message.confirmArea(symbol.size());
    }
    message.isRefresh = chance(30) ? 1 : 0;
}

void RandomMessages::addPair(Message& message) {
    const auto token = [this](int number) { return m_map.lookupTokenViaNum(number); };
    static constexpr int INTS[] = {1, 20000, 32};
    static constexpr int DOUBLES[] = {7, 8, 30, 30, 31};
    static constexpr int TEXTS[] = {2, 2, 70001};
    static constexpr int DELETED[] = {1, 7, 30, 5026};
    switch (below(12)) {
    case 0:
        return message.addPair()->setI(token(33), 1);
    case 1: {
        const int number = DELETED[below(std::size(DELETED))];
        message.isTagPresent |= number == 5026 ? 1U : 0U;
        return message.addPair()->setI(token(5004), number);
    }
    case 2: // A second one of a field that the header has stays a pair.
        if (message.exchange != nullptr)
            return message.addPair()->setI(token(4), integer());
        break;
    case 3:
        if (message.symbol.len != 0)
            return addText(message, token(5));
        break;
    case 4:
        return message.addPair()->setI(token(6), static_cast<std::int64_t>(2 + below(9)));
    case 5:
        message.isTagPresent = 1;
        return message.addPair()->setI(token(5026), integer());
    case 6:
        message.isAltIndexPresent = 1;
        return addText(message, token(static_cast<int>(11 + below(6))));
    case 7: { // A field that the map does not know.
        const std::string number = std::to_string(3'000'000 + below(1000));
        message.addCopyStr(token(45028), bufref(number.data(), number.size()));
        return addText(message, token(45029));
    }
    case 8:
    case 9:
        return message.addPair()->setD(token(DOUBLES[below(std::size(DOUBLES))]), decimal());
    case 10:
        return addText(message, token(TEXTS[below(std::size(TEXTS))]));
    default:
        break;
    }
    message.addPair()->setI(token(INTS[below(std::size(INTS))]), integer());
}

void RandomMessages::fill(Message& message) {
    message.reset();
    fillHeader(message);
    for (std::uint64_t pairs = chance(90) ? below(12) : below(80); pairs != 0; --pairs)
        addPair(message);
}

} // namespace kvnparse_test
