#include "EncoderBench.h"

#include "Interleave.h"

#include "kvnparse/DataMap.h"
#include "kvnparse/Encoder.h"
#include "kvnparse/Exchange.h"
#include "kvnparse/FrameFormat.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <benchmark/benchmark.h>
#include <fmt/compile.h>
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_bench {
namespace {

using KVNAPI::bufref;
using KVNAPI::Message;
using KVNAPI::Token;
using KVNAPI::TVPair;

constexpr int ROUNDS = 21;
constexpr std::size_t ROOM = 8192;
using Messages = std::vector<std::unique_ptr<Message>>;

Messages parsed(TapeMap& map, const std::string& frames) {
    const auto parser = KVNAPI::Parser::alloc("kvn", &map, 1 << 18);
    parser->push(bufref(frames.data(), frames.size()));
    Messages messages;
    for (;;) {
        auto message = std::make_unique<Message>();
        if (parser->pull(message.get()) != 0)
            return messages;
        message->copyStrings();
        messages.push_back(std::move(message));
    }
}

/// How a form of the encoders puts a message together.
struct Form {
    const char* name; ///< of the encoder
    bool isFramed;    ///< numbers for tokens, in a frame; otherwise names, in a line
    char separator;
    char end;
};
constexpr Form FRAMED{"kvn", true, '|', '\x03'};
constexpr Form READABLE{"vkvn", false, ' ', '\n'};

/// The pairs as most programs would write them.
struct WithSnprintf {
    static char* write(char* at, const char* name, std::int64_t value, char separator) {
        return at + std::snprintf(at, 128, "%s=%lld%c", name, static_cast<long long>(value), separator);
    }
    static char* write(char* at, const char* name, double value, char separator) {
        return at + std::snprintf(at, 128, "%s=%.15g%c", name, value, separator);
    }
    static char* write(char* at, const char* name, bufref value, char separator) {
        return at + std::snprintf(at, ROOM / 2, "%s=%.*s%c", name, static_cast<int>(value.len), value.buf,
                                  separator);
    }
};

struct WithFmt {
    template<class Value>
    static char* write(char* at, const char* name, Value value, char separator) {
        return fmt::format_to(at, FMT_COMPILE("{}={}{}"), name, value, separator);
    }
    static char* write(char* at, const char* name, bufref value, char separator) {
        return write(at, name, value.view(), separator);
    }
};

/// The tokens of a message's header.
struct HeaderTokens {
    explicit HeaderTokens(TapeMap& map)
        : permission(map.lookupTokenViaNum(3))
        , source(map.lookupTokenViaNum(4))
        , symbol(map.lookupTokenViaNum(5))
        , partCode(map.lookupTokenViaNum(9)) {}

    const Token* permission;
    const Token* source;
    const Token* symbol;
    const Token* partCode;
};

/// Writes a message like the encoder of the form; gives where it ends.
template<class Way>
char* writeMessage(const TapeMap& map, const HeaderTokens& tokens, const Form& form, const Message& message,
                   char* out) {
    char* at = out + (form.isFramed ? KVNAPI::kKvnHeaderSize : 0);
    const auto nameOf = [&](const Token* token) {
        return form.isFramed ? token->sid : map.getShortName(token);
    };
    const auto writeId = [&](const Token* token, const KVNAPI::Exchange* id) {
        if (id != nullptr)
            at = Way::write(at, nameOf(token), bufref(id->sid, std::strlen(id->sid)), form.separator);
    };
    if (form.isFramed)
        writeId(tokens.permission, message.permission);
    writeId(tokens.source, message.exchange);
    if (!form.isFramed)
        writeId(tokens.permission, message.permission);
    if (message.market != 0)
        at = Way::write(at, nameOf(tokens.partCode), bufref(&message.market, 1), form.separator);
    if (message.symbol.len != 0)
        at = Way::write(at, nameOf(tokens.symbol), message.symbol, form.separator);
    for (int i = 0; i < message.pairCount(); ++i) {
        const TVPair* const pair = message.pair(i);
        const char* const name = nameOf(pair->token);
        if (pair->token->storage == Token::TY_INT)
            at = Way::write(at, name, pair->i, form.separator);
        else if (pair->token->storage == Token::TY_DOUBLE)
            at = Way::write(at, name, pair->d, form.separator);
        else
            at = Way::write(at, name, pair->s, form.separator);
    }
    at[-1] = form.end;
    if (form.isFramed)
        KVNAPI::writeFrameHeader(out, static_cast<std::uint32_t>(at - out) -
                                          static_cast<std::uint32_t>(KVNAPI::kKvnFrameExtra));
    return at;
}

template<class Way>
std::function<void()> writing(const TapeMap& map, const HeaderTokens& tokens, const Form& form,
                              const Messages& messages, std::string& room) {
    return [&] {
        for (const auto& message : messages) {
            benchmark::DoNotOptimize(writeMessage<Way>(map, tokens, form, *message, room.data()));
            benchmark::ClobberMemory();
        }
    };
}

/// Messages that the other ways write to the very same bytes.
std::size_t alike(const TapeMap& map, const HeaderTokens& tokens, const Form& form, const Messages& messages,
                  KVNAPI::Encoder& encoder) {
    std::string ours(ROOM, '\0'), theirs(ROOM, '\0');
    std::size_t count = 0;
    for (const auto& message : messages) {
        bufref out(ours.data(), ours.size());
        if (encoder.encode(&out, message.get()) != 0)
            std::abort();
        const std::string_view written(ours.data(), out.len);
        const auto isSame = [&](const char* end) {
            return written == std::string_view(theirs.data(), static_cast<std::size_t>(end - theirs.data()));
        };
        if (isSame(writeMessage<WithSnprintf>(map, tokens, form, *message, theirs.data())) &&
            isSame(writeMessage<WithFmt>(map, tokens, form, *message, theirs.data())))
            ++count;
    }
    return count;
}

void benchForm(TapeMap& map, const Form& form, const Messages& messages) {
    const HeaderTokens tokens(map);
    const auto encoder = KVNAPI::Encoder::alloc(form.name, &map);
    if (encoder == nullptr)
        std::abort();
    std::string room(ROOM, '\0');
    const std::vector<Contestant> contestants{
        {"this library's encoder",
         [&] {
             for (const auto& message : messages) {
                 bufref out(room.data(), room.size());
                 if (encoder->encode(&out, message.get()) != 0)
                     std::abort();
                 benchmark::ClobberMemory();
             }
         }},
        {"snprintf for each pair", writing<WithSnprintf>(map, tokens, form, messages, room)},
        {"fmt::format_to for each pair", writing<WithFmt>(map, tokens, form, messages, room)},
    };
    const Times times = interleave(contestants, ROUNDS);
    printTable("Writing " + std::string(form.name) + ", " + std::to_string(messages.size()) + " messages, " +
                   std::to_string(alike(map, tokens, form, messages, *encoder)) +
                   " of them alike in all ways",
               contestants, times, messages.size(), "message");
    printGain("times as fast as snprintf", ratios(times[1], times[0]), "above 1");
    printGain("times as fast as fmt", ratios(times[2], times[0]), "above 1");
}

} // namespace

void benchEncoders(const std::vector<TapeMessage>& messages) {
    TapeMap map;
    Token refresh; // which encoders ask for
    refresh.kvnid = 6;
    refresh.name = "REFRESH";
    if (map.addToken(&refresh) == nullptr)
        std::abort();
    const std::string frames = asFrames(messages);
    const Messages all = parsed(map, frames);
    benchForm(map, FRAMED, all);
    benchForm(map, READABLE, all);
}

} // namespace tivra_bench
