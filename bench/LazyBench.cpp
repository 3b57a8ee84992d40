#include "LazyBench.h"

#include "Interleave.h"
#include "ParserOptions.h"

#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

namespace tivra_bench {
namespace {

constexpr int ROUNDS = 21;

/// What a callback asks of a message.
enum class Reading { NOTHING, THREE_FIELDS, ALL_FIELDS };

struct Row {
    const char* name;
    bool lazy;
    Reading reading;
};

/// Where in a message three numbers stand: of quotes a time, a price and a size; of trades likewise.
constexpr int THREE_FIELDS[] = {1, 3, 4};

void readThree(const KVNAPI::Message& message) {
    for (const int field : THREE_FIELDS)
        benchmark::DoNotOptimize(message.pair(field)->i);
}

void readAll(const KVNAPI::Message& message) {
    KVNAPI::Message::iterator pairs(&message);
    while (const KVNAPI::TVPair* const pair = pairs.next())
        benchmark::DoNotOptimize(pair->i);
}

} // namespace

void benchLazyValues(const std::vector<TapeMessage>& messages) {
    TapeMap map;
    const std::string frames = asFrames(messages);
    const Row rows[] = {{"decoded at once, none read", false, Reading::NOTHING},
                        {"decoded at once, 3 read", false, Reading::THREE_FIELDS},
                        {"decoded at once, all read", false, Reading::ALL_FIELDS},
                        {"on demand, none read", true, Reading::NOTHING},
                        {"on demand, 3 read", true, Reading::THREE_FIELDS},
                        {"on demand, all read", true, Reading::ALL_FIELDS}};
    std::vector<std::unique_ptr<KVNAPI::Parser>> parsers;
    std::vector<Contestant> contestants;
    for (const Row& row : rows) {
        parsers.push_back(KVNAPI::Parser::alloc("kvn", &map, 1 << 18));
        KVNAPI::Parser& parser = *parsers.back();
        setTextsInFrame(parser, true);
        setLazyValues(parser, row.lazy);
        contestants.push_back({row.name, [&parser, &frames, &row] {
                                   parser.push(KVNAPI::bufref(frames.data(), frames.size()));
                                   KVNAPI::Message message;
                                   while (parser.pull(&message) == 0) {
                                       if (row.reading == Reading::THREE_FIELDS)
                                           readThree(message);
                                       else if (row.reading == Reading::ALL_FIELDS)
                                           readAll(message);
                                       benchmark::DoNotOptimize(message);
                                   }
                               }});
    }
    const Times times = interleave(contestants, ROUNDS);
    printTable("Values on demand", contestants, times, messages.size(), "message");
    printAim("time on demand against decoded at once, 3 read", ratios(times[4], times[1]), "0.65 or less");
    printAim("time on demand against decoded at once, none read", ratios(times[3], times[0]), "none");
    printAim("time on demand against decoded at once, all read", ratios(times[5], times[2]), "none");
}

} // namespace tivra_bench
