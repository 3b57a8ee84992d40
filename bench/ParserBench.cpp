// Parses the frames of a trading day and prints what that takes beside a mere walk over their separators, a
// plain parser and other libraries' parsers of the same messages, all measured in turn in one run.
#include "EncoderBench.h"
#include "Interleave.h"
#include "LazyBench.h"
#include "NumberBench.h"
#include "ParserShapes.h"
#include "Report.h"
#include "Rivals.h"
#include "TapeFrames.h"

#include "kvnparse/BodyParser.h"
#include "kvnparse/FrameFormat.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

using namespace tivra_bench;
using KVNAPI::bufref;
using KVNAPI::Token;

constexpr int ROUNDS = 21;
constexpr int WHOLE_DAY_ROUNDS = 5;

/// Calls `parse` with each frame of a stream.
template<class Parse>
void forEachFrame(const std::string& frames, Parse parse) {
    const char* position = frames.data();
    const char* const end = position + frames.size();
    while (position != end) {
        const std::size_t size = KVNAPI::frameBodyLength(position) + KVNAPI::kKvnFrameExtra;
        parse(position, size);
        position += size;
    }
}

void parseWithLibrary(KVNAPI::Parser& parser, const std::string& frames) {
    parser.push(bufref(frames.data(), frames.size()));
    KVNAPI::Message message;
    while (parser.pull(&message) == 0)
        benchmark::DoNotOptimize(message);
}

void parseWithForm(KVNAPI::KVNParse& parse, KVNAPI::BodyParser form, const std::string& frames) {
    KVNAPI::Message message;
    forEachFrame(frames, [&](const char* frame, std::size_t size) {
        if (parse.parseWith(form, bufref(frame, size), &message) != 0)
            std::abort();
        benchmark::DoNotOptimize(message);
    });
}

/// memchr from each "|" to the next, the least that finds the fields.
void walkFields(const std::string& frames) {
    std::size_t sum = 0;
    forEachFrame(frames, [&sum](const char* frame, std::size_t size) {
        const char* position = frame + KVNAPI::kKvnHeaderSize;
        const char* const end = frame + size - 1;
        while (const void* const found =
                   std::memchr(position, '|', static_cast<std::size_t>(end - position))) {
            position = static_cast<const char*>(found) + 1;
            ++sum;
        }
        benchmark::DoNotOptimize(sum);
    });
}

/// memchr to each "=" and "|" in turn, the least that finds numbers and values.
void walkSeparators(const std::string& frames) {
    std::size_t sum = 0;
    forEachFrame(frames, [&sum](const char* frame, std::size_t size) {
        const char* position = frame + KVNAPI::kKvnHeaderSize;
        const char* const end = frame + size - 1;
        char separator = '=';
        while (const void* const found =
                   std::memchr(position, separator, static_cast<std::size_t>(end - position))) {
            position = static_cast<const char*>(found) + 1;
            separator = separator == '=' ? '|' : '=';
            ++sum;
        }
        benchmark::DoNotOptimize(sum);
    });
}

/// What one would write in an afternoon, without mistakes: the standard library's best parts.
class PlainParser {
public:
    struct Pair {
        const TapeToken* token;
        std::int64_t integer;
        double decimal;
        std::string_view text;
    };

    PlainParser() {
        for (std::size_t i = 0; i < TAPE_TOKEN_COUNT; ++i)
            m_tokens.emplace(TAPE_TOKENS[i].number, &TAPE_TOKENS[i]);
    }

    void parse(std::string_view body) {
        m_pairs.clear();
        while (!body.empty()) {
            const std::size_t end = std::min(body.find('|'), body.size());
            const std::string_view field = body.substr(0, end);
            const std::size_t equals = field.find('=');
            int number = 0;
            std::from_chars(field.data(), field.data() + equals, number);
            add(m_tokens.at(number), field.substr(equals + 1));
            body.remove_prefix(std::min(end + 1, body.size()));
        }
    }

    [[nodiscard]] const std::vector<Pair>& pairs() const { return m_pairs; }

private:
    void add(const TapeToken* token, std::string_view value) {
        Pair pair{token, 0, 0.0, value};
        if (token->storage == Token::TY_INT)
            std::from_chars(value.data(), value.data() + value.size(), pair.integer);
        else if (token->storage == Token::TY_DOUBLE)
            std::from_chars(value.data(), value.data() + value.size(), pair.decimal);
        m_pairs.push_back(pair);
    }

    std::unordered_map<int, const TapeToken*> m_tokens;
    std::vector<Pair> m_pairs;
};

void parsePlainly(PlainParser& parser, const std::string& frames) {
    forEachFrame(frames, [&parser](const char* frame, std::size_t size) {
        parser.parse({frame + KVNAPI::kKvnHeaderSize, size - KVNAPI::kKvnFrameExtra});
        benchmark::DoNotOptimize(parser.pairs().data());
    });
}

std::vector<std::vector<RivalField>> rivalFields(const std::vector<TapeMessage>& messages) {
    std::unordered_map<int, char> kinds;
    for (std::size_t i = 0; i < TAPE_TOKEN_COUNT; ++i)
        kinds[TAPE_TOKENS[i].number] = "ids"[TAPE_TOKENS[i].storage];
    std::vector<std::vector<RivalField>> result;
    for (const TapeMessage& message : messages) {
        result.emplace_back();
        for (const TapeField& field : message)
            result.back().push_back({field.token, kinds.at(field.token), field.value});
    }
    return result;
}

void benchDay(const char* title, const std::vector<TapeMessage>& messages, int rounds, bool withRivals) {
    TapeMap map;
    const std::string frames = asFrames(messages);
    const auto parser = KVNAPI::Parser::alloc("kvn", &map, 1 << 18);
    KVNAPI::KVNParse forms;
    if (parser == nullptr || forms.setMetaMap(&map) != 0)
        std::abort();
    PlainParser plain;
    std::vector<Contestant> contestants{
        {"this library", [&] { parseWithLibrary(*parser, frames); }},
        {"memchr walk to each = and |", [&] { walkSeparators(frames); }},
        {"plain parser", [&] { parsePlainly(plain, frames); }},
        {"memchr walk to each | alone", [&] { walkFields(frames); }},
    };
    std::unique_ptr<Rival> simdjson, quickfix;
    std::size_t simdjsonAt = 0, quickfixAt = 0;
    const auto addRival = [&contestants](const char* name, Rival* rival) {
        contestants.push_back({name, [rival] { benchmark::DoNotOptimize(rival->parseAll()); }});
        return contestants.size() - 1;
    };
#if TIVRA_HAVE_SIMDJSON
    if (withRivals) {
        simdjson = newSimdjsonRival(asJsonLines(messages));
        simdjsonAt = addRival("simdjson, JSON lines", simdjson.get());
    }
#endif
#if TIVRA_HAVE_QUICKFIX
    if (withRivals) {
        quickfix = newQuickfixRival(rivalFields(messages));
        quickfixAt = addRival("QuickFIX", quickfix.get());
    }
#endif
    for (const KVNAPI::BodyParserForm* form = KVNAPI::kBodyParserForms; form->name != nullptr; ++form)
        if (withRivals && form->runsHere())
            contestants.push_back({std::string("body parser alone, ") + form->name,
                                   [&forms, &frames, form] { parseWithForm(forms, form->parse, frames); }});
    const Times times = interleave(contestants, rounds);
    const std::string heading = std::string(title) + ": " + std::to_string(messages.size()) + " messages, " +
                                std::to_string(fieldCount(messages)) + " fields, " +
                                std::to_string(frames.size()) + " bytes";
    printTable(heading, contestants, times, messages.size(), "message");
    printAim("time against the memchr walk to each = and |", ratios(times[0], times[1]), "0.85 or less");
    printAim("time against the memchr walk to each | alone", ratios(times[0], times[3]), "none");
    printAim("time against the plain parser", ratios(times[0], times[2]), "0.40 or less");
    if (simdjsonAt != 0)
        printGain("times as fast as simdjson", ratios(times[simdjsonAt], times[0]), "1.6 or more");
    else if (withRivals)
        std::printf("  simdjson is not installed: no figure\n");
    if (quickfixAt != 0)
        printGain("times as fast as QuickFIX", ratios(times[quickfixAt], times[0]), "10 or more");
    else if (withRivals)
        std::printf("  QuickFIX is not installed: no figure\n");
}

void benchSymbols(const std::vector<TapeMessage>& messages) {
    TapeMap map;
    const std::string few = asFrames(withSymbols(messages, 4));
    const std::string many = asFrames(withSymbols(messages, 2000));
    const auto parser = KVNAPI::Parser::alloc("kvn", &map, 1 << 18);
    const std::vector<Contestant> contestants{
        {"4 symbols", [&] { parseWithLibrary(*parser, few); }},
        {"2000 symbols", [&] { parseWithLibrary(*parser, many); }},
    };
    const Times times = interleave(contestants, ROUNDS);
    printTable("Symbols", contestants, times, messages.size(), "message");
    printAim("time with 2000 symbols against 4", ratios(times[1], times[0]), "1.10 or less");
}

} // namespace

int main(int argc, char** argv) {
    const Options options(argc, argv, ROUNDS);
    const std::vector<TapeMessage> sample = readTape(TIVRA_SAMPLE_DAY);
    if (sample.empty()) {
        std::fprintf(stderr, "can't read the sample day at %s\n", TIVRA_SAMPLE_DAY);
        return 1;
    }
    benchDay("Sample of the day", sample, options.rounds, true);
    benchSymbols(sample);
    benchLazyValues(sample);
    benchShapes(sample);
    benchNumbers();
    benchEncoders(sample);
    const std::vector<TapeMessage> day =
        options.isQuick ? std::vector<TapeMessage>() : readTape(TIVRA_WHOLE_DAY);
    if (day.empty())
        std::printf("\nWhole day: skipped, or there is no %s\n", TIVRA_WHOLE_DAY);
    else
        benchDay("Whole day", day, WHOLE_DAY_ROUNDS, false);
    Report::get().finish();
    return 0;
}
