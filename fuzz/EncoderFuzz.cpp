// Messages with arbitrary fields through both encoders, into rooms of arbitrary sizes, judged against
// encoders that are written for clearness. What the framed form holds is read and written once more.
#include "FuzzCheck.h"
#include "FuzzDictionary.h"

#include "kvnparse/Encoder.h"
#include "kvnparse/Exchange.h"
#include "kvnparse/Message.h"
#include "kvnparse/NumericText.h"
#include "kvnparse/Parser.h"

#include <tp/te_error.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace KVNAPI;

/// Bits of the first byte of an input.
enum Mode : unsigned { NO_HEADER = 1, OTHER_END = 2, ADD_PERMISSION = 4, SUPPRESS = 8 };

constexpr int SUPPRESSED = 11;
constexpr int RECORD_DELETED = 5005;
constexpr int TOKEN_DELETED = 5004;

/// The fields that are written in a way of their own, beside those of all targets.
constexpr fuzz::Field MORE_FIELDS[] = {{6, "TRADE.DATETIME", Token::TY_DOUBLE},
                                       {18, "SETTLE.DATE", Token::TY_DOUBLE},
                                       {19, "CNF.TRADE.DATETIME", Token::TY_INT},
                                       {RECORD_DELETED, "RECORD.DEL", Token::TY_INT}};

class Dictionary : public DataMap {
public:
    Dictionary() {
        for (const fuzz::Field& field : MORE_FIELDS)
            add(field);
        for (const fuzz::Field& field : fuzz::FIELDS)
            add(field);
        if (setShortName(lookupTokenViaNum(10), "b") != 0)
            std::abort();
    }

    std::vector<Token*> tokens;

protected:
    /// A map that grew for ever would end a long run.
    Exchange* newExchange(const Exchange* exchange) override {
        return exchangeCount() < 50000 ? DataMap::newExchange(exchange) : nullptr;
    }

private:
    void add(const fuzz::Field& field) {
        Token token;
        token.kvnid = field.id;
        token.name = field.name;
        token.storage = field.storage & 3;
        tokens.push_back(addToken(&token));
    }
};

Dictionary& dictionary() {
    static Dictionary known;
    return known;
}

/// Makes a message of the bytes of an input.
class Builder {
public:
    Builder(std::string_view bytes, Message& message) : m_rest(bytes), m_message(message) {
        while (!m_rest.empty())
            addField();
    }

    /// Whether the message reads the same when its frame is parsed.
    [[nodiscard]] bool survives() const { return m_survives; }

private:
    unsigned byte() {
        if (m_rest.empty())
            return 0;
        const auto value = static_cast<unsigned char>(m_rest.front());
        m_rest.remove_prefix(1);
        return value;
    }

    std::int64_t integer() {
        const unsigned count = byte() % 9;
        std::uint64_t value = 0;
        for (unsigned i = 0; i < count; ++i)
            value = value << 8 | byte();
        return static_cast<std::int64_t>(value << (8 * (8 - count) % 64)) >> (8 * (8 - count) % 64);
    }

    double decimal() {
        const unsigned kind = byte();
        const std::int64_t value = integer();
        const double number = kind < 10 ? static_cast<double>(value) / std::pow(10, kind)
                                        : std::bit_cast<double>(static_cast<std::uint64_t>(value));
        // The parser reads the whole part as a signed number, and a zero with a sign is written without it.
        m_survives = m_survives && !(std::fabs(number) >= 9.2e18) && !(number < 0 && number > -1e-8);
        return number;
    }

    std::string_view text() {
        const std::size_t length = byte() % 200;
        const std::string_view taken = m_rest.substr(0, length);
        m_rest.remove_prefix(taken.size());
        m_survives = m_survives && taken.find_first_of("|\x03") == std::string_view::npos;
        return taken;
    }

    const Exchange* exchange() { return dictionary().lookupExchange(static_cast<std::int32_t>(integer())); }

    void addField() {
        const unsigned kind = byte();
        switch (kind) {
        case 0:
            m_message.exchange = exchange();
            return;
        case 1:
            m_message.permission = exchange();
            return;
        case 2:
            m_message.market = static_cast<char>(byte());
            return;
        case 3: {
            const std::string_view symbol = text();
            m_message.symbol = bufref(symbol.data(), symbol.size());
            return;
        }
        case 4:
            m_message.isRefresh = 1;
            return;
        default:
            return addPair(dictionary().tokens[kind % dictionary().tokens.size()]);
        }
    }

    void addPair(Token* token) {
        TVPair* const pair = m_message.addPair();
        if (token->storage == Token::TY_STRING) {
            const std::string_view bytes = text();
            pair->setS(token, bytes.data(), static_cast<long>(bytes.size()));
        } else if (token->storage == Token::TY_DOUBLE) {
            pair->setD(token, decimal());
        } else {
            pair->setI(token, integer());
        }
        // Fields of the header that stand among the pairs move there, or are not pairs at all.
        const int id = token->kvnid;
        m_survives =
            m_survives && (id < 3 || id > 9 || id == 6) && (id != TOKEN_DELETED || isDeletable(pair->i));
    }

    static bool isDeletable(std::int64_t id) { return id == 11 || id == 12; }

    std::string_view m_rest;
    Message& m_message;
    bool m_survives = true;
};

/// What an encoder is to say: its result and, unless it fails, its bytes.
struct Encoded {
    int result = -1;
    std::string bytes;

    [[nodiscard]] std::string text() const { return std::to_string(result) + ' ' + bytes; }
};

std::string valueOf(const TVPair& pair) {
    if (pair.token->storage == Token::TY_STRING)
        return std::string(pair.s.view());
    if (pair.token->storage == Token::TY_INT)
        return std::to_string(pair.i);
    char number[NUMBER_TEXT_MAX];
    return {number, dtoa(number, pair.d)};
}

std::string field(int id, const std::string& value) {
    return std::to_string(id) + '=' + value + '|';
}

/// A pair in a frame, or nothing when the token is suppressed.
std::string framedPair(const TVPair& pair, unsigned mode) {
    const int id = pair.token->kvnid;
    if ((mode & SUPPRESS) != 0 && id == SUPPRESSED)
        return "";
    if (id == RECORD_DELETED)
        return field(id, "1");
    if (id == TOKEN_DELETED)
        return std::to_string(pair.i) + "=|";
    return field(id, valueOf(pair));
}

bool isLong(const Exchange* exchange) {
    return exchange != nullptr && std::to_string(exchange->id).size() > 7;
}

Encoded referenceFrame(const Message& message, unsigned mode, std::size_t room) {
    const std::size_t needed = message.permission != nullptr ? 127 : isLong(message.exchange) ? 95 : 87;
    if (room < needed + message.symbol.len)
        return {};
    std::string text = (mode & NO_HEADER) != 0 ? "" : "\4 ....";
    const std::size_t header = text.size();
    if (message.permission != nullptr)
        text += field(3, std::to_string(message.permission->id));
    if (message.exchange != nullptr && (mode & ADD_PERMISSION) != 0)
        text += field(3, std::to_string(message.exchange->id));
    if (message.exchange != nullptr)
        text += field(4, std::to_string(message.exchange->id));
    if (message.market != 0)
        text += field(9, std::string(1, message.market));
    if (message.symbol.len != 0)
        text += field(5, std::string(message.symbol.view()));
    if (message.isRefresh)
        text += field(7, "1");
    for (int i = 0; i < message.pairCount(); ++i) {
        const std::string pair = framedPair(*message.pair(i), mode);
        if (text.size() + 34 > room || text.size() + pair.size() > room)
            return {};
        text += pair;
    }
    if (text.size() == header)
        return {1, ""};
    text.back() = (mode & OTHER_END) != 0 ? '\n' : '\3';
    for (std::size_t i = 0; i < 4 && header != 0; ++i)
        text[2 + i] = static_cast<char>((text.size() - 7) >> (24 - 8 * i) & 0xff);
    return {0, text};
}

Encoded referenceLine(const Message& message, std::size_t room) {
    const std::size_t needed = (message.permission != nullptr ? 346U : 273U) +
                               (isLong(message.permission) ? 4U : 0U) + (isLong(message.exchange) ? 4U : 0U);
    if (room < needed + message.symbol.len)
        return {};
    std::string text;
    const auto add = [&text](const std::string& name, const std::string& value) {
        text.append(name).append("=").append(value) += ' ';
    };
    if (message.exchange != nullptr)
        add("ENUM.SRC.ID", std::to_string(message.exchange->id));
    if (message.permission != nullptr)
        add("PERMISSION", std::to_string(message.permission->id));
    if (message.market != 0)
        add("PART.CODE", std::string(1, message.market));
    if (message.symbol.len != 0)
        add("SYMBOL.TICKER", std::string(message.symbol.view()));
    if (message.isRefresh)
        add("REFRESH", "1");
    for (int i = 0; i < message.pairCount(); ++i) {
        const TVPair& pair = *message.pair(i);
        const std::size_t start = text.size();
        add(pair.token->kvnid == 10 ? "b" : pair.token->name, valueOf(pair));
        if (start + 87 > room || text.size() > room)
            return {};
    }
    if (text.empty())
        return {1, ""};
    text.back() = '\n';
    return {0, text};
}

/// As expectEqual, in a form that shows bytes of all kinds.
void expectSame(std::string_view what, const std::string& ours, const std::string& reference) {
    if (ours == reference)
        return;
    const auto shown = [](const std::string& bytes) {
        std::string text(bytes.size() * 6 + 8, '\0');
        hexifyStr(bufref(text.data(), text.size()), bufref(bytes.data(), bytes.size()));
        return text.substr(0, text.find('\0'));
    };
    fuzz::expectEqual(what, shown(ours), shown(reference));
    std::abort();
}

Encoded encode(Encoder& encoder, const Message& message, std::size_t room) {
    // A block of the exact size shows any write past it.
    fuzz::ExactBytes bytes(room);
    bufref out(bytes.data(), bytes.size());
    Encoded encoded;
    encoded.result = encoder.encode(&out, &message);
    if (encoded.result >= 0)
        encoded.bytes = out.view();
    else if (out.len != room || std::string_view(tp::te_geterror()) != "Not enough space for message.")
        std::abort();
    return encoded;
}

std::unique_ptr<Encoder> framedEncoder(unsigned mode) {
    auto encoder = Encoder::alloc("kvn", &dictionary());
    std::string options = "AppendHeader=" + std::string((mode & NO_HEADER) != 0 ? "0" : "1");
    if ((mode & OTHER_END) != 0)
        options += ",SetEOL=10";
    if ((mode & ADD_PERMISSION) != 0)
        options += ",AddPermToken=1";
    if ((mode & SUPPRESS) != 0)
        options += ",SuppressToken=" + std::to_string(SUPPRESSED);
    if (encoder == nullptr || encoder->optionParser(options.c_str()) != 0)
        std::abort();
    return encoder;
}

void checkReading(Encoder& encoder, const std::string& frame) {
    const auto parser = Parser::alloc("kvn", &dictionary(), 65536);
    parser->push(bufref(frame.data(), frame.size()));
    Message read;
    if (parser->pull(&read) != 0)
        fuzz::expectEqual("a frame that was written", tp::te_geterror(), frame);
    expectSame("written again", encode(encoder, read, 65536).bytes, frame);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 8192)
        return 0;
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    const std::size_t room = input.byte() * 8 + input.byte();
    Message message;
    const Builder builder(input.rest(), message);
    const auto framed = framedEncoder(mode);
    const auto lines = Encoder::alloc("vkvn", &dictionary());
    // Twice with one encoder, which has the dates' texts the second time.
    for (const std::size_t space : {room, std::size_t{262144}, room}) {
        expectSame("frame", encode(*framed, message, space).text(),
                   referenceFrame(message, mode, space).text());
        expectSame("line", encode(*lines, message, space).text(), referenceLine(message, space).text());
    }
    const Encoded frame = encode(*framed, message, 262144);
    if ((mode & (NO_HEADER | OTHER_END | ADD_PERMISSION)) == 0 && builder.survives() && frame.result == 0)
        checkReading(*framed, frame.bytes);
    return 0;
}
