#include "ParserShapes.h"

#include "Interleave.h"
#include "ParserOptions.h"

#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <utility>

namespace tivra_bench {
namespace {

constexpr int ROUNDS = 15;
constexpr std::size_t MESSAGES = 16384;
constexpr int SYMBOL_TOKEN = 5;
constexpr int TEXT_TOKEN = 1025;
constexpr int FIRST_INTEGER = 2000;

/// Where the texts of a parsed message stand.
enum Texts { COPIED, IN_FRAME };

/// One row: frames, and a parser of its own, which learns from nothing but them.
struct Shape {
    std::string name;
    std::string frames;
    Texts texts = IN_FRAME;
};

using Fields = std::vector<TapeMessage>;

Fields repeat(const TapeMessage& message, std::size_t count) {
    return Fields(count, message);
}

/// The day's messages, the field of that token moved to the end.
Fields endingIn(Fields messages, int token) {
    for (TapeMessage& message : messages)
        std::stable_partition(message.begin(), message.end(),
                              [token](const TapeField& field) { return field.token != token; });
    return messages;
}

/// The day's quotes in so many orders of their fields, mixed at random.
Fields inLayouts(const Fields& day, std::size_t layouts) {
    Fields quotes;
    for (const TapeMessage& message : day)
        if (quotes.empty() || message.size() == quotes[0].size())
            quotes.push_back(message);
    std::mt19937 random(11);
    std::vector<std::vector<std::size_t>> orders(layouts);
    for (std::vector<std::size_t>& order : orders) {
        for (std::size_t i = 0; i < quotes[0].size(); ++i)
            order.push_back(i);
        std::shuffle(order.begin(), order.end(), random);
    }
    Fields messages;
    for (std::size_t i = 0; i < MESSAGES; ++i) {
        messages.emplace_back();
        for (const std::size_t field : orders[random() % layouts])
            messages.back().push_back(quotes[i % quotes.size()][field]);
    }
    return messages;
}

TapeMessage integers(int count) {
    TapeMessage message;
    for (int i = 0; i < count; ++i)
        message.push_back({FIRST_INTEGER + i % 256, std::to_string(i * 37)});
    return message;
}

TapeMessage textOf(std::size_t size) {
    return {{SYMBOL_TOKEN, "IBM"}, {TEXT_TOKEN, std::string(size, 'x')}, {FIRST_INTEGER, "17"}};
}

void parse(KVNAPI::Parser& parser, const std::string& frames) {
    parser.push(KVNAPI::bufref(frames.data(), frames.size()));
    for (;;) {
        KVNAPI::Message message;
        if (parser.pull(&message) != 0)
            return;
        benchmark::DoNotOptimize(message);
    }
}

Times run(const char* title, const std::vector<Shape>& shapes, std::size_t items,
          const char* item = "message") {
    TapeMap map;
    std::vector<std::unique_ptr<KVNAPI::Parser>> parsers;
    std::vector<Contestant> contestants;
    for (const Shape& shape : shapes) {
        parsers.push_back(KVNAPI::Parser::alloc("kvn", &map, 1 << 18));
        KVNAPI::Parser& parser = *parsers.back();
        setTextsInFrame(parser, shape.texts == IN_FRAME);
        contestants.push_back({shape.name, [&parser, &shape] { parse(parser, shape.frames); }});
    }
    const Times times = interleave(contestants, ROUNDS);
    printTable(title, contestants, times, items, item);
    return times;
}

void benchLayouts(const Fields& day) {
    std::vector<Shape> shapes;
    for (const std::size_t layouts : {1U, 16U, 256U, 1024U})
        shapes.push_back({std::to_string(layouts).append(" layouts"), asFrames(inLayouts(day, layouts))});
    const Times times = run("Fields in many orders, mixed at random", shapes, MESSAGES);
    printAim("time with 1024 layouts against one", ratios(times[3], times[0]), "1.60 or less");
}

void benchPairs() {
    std::vector<Shape> shapes;
    // As many pairs in all, so that the rows compare.
    for (const int pairs : {32, 33, 64, 128, 256})
        shapes.push_back({std::to_string(pairs).append(" pairs"),
                          asFrames(repeat(integers(pairs), static_cast<std::size_t>(65536 / pairs)))});
    const Times times = run("Many pairs", shapes, 65536, "pair");
    printAim("time a pair of 33 against 32", ratios(times[1], times[0]), "1.05 or less");
}

void benchTexts() {
    std::vector<Shape> shapes;
    constexpr std::size_t COUNT = 1024;
    for (const Texts texts : {IN_FRAME, COPIED})
        for (const std::size_t size : {16U, 17U, 64U, 65U, 1000U, 16000U})
            shapes.push_back({std::to_string(size).append(texts == COPIED ? " bytes, copied" : " bytes"),
                              asFrames(repeat(textOf(size), COUNT)), texts});
    const Times times = run("One text among the fields", shapes, COUNT);
    printAim("time with a text of 17 bytes against 16", ratios(times[1], times[0]), "1.10 or less");
}

} // namespace

void benchShapes(const std::vector<TapeMessage>& messages) {
    const Times times = run("The field at the end of a message",
                            {{"a number", asFrames(messages)},
                             {"the symbol", asFrames(endingIn(messages, SYMBOL_TOKEN))},
                             {"the symbol, copied", asFrames(endingIn(messages, SYMBOL_TOKEN)), COPIED}},
                            messages.size());
    printAim("time with the symbol at the end against a number", ratios(times[1], times[0]), "1.05 or less");
    benchLayouts(messages);
    benchPairs();
    benchTexts();
}

} // namespace tivra_bench
