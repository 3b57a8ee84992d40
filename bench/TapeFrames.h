#pragma once

#include "kvnparse/DataMap.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tivra_bench {

/// One field of a message: a token number and its value as text.
struct TapeField {
    int token;
    std::string value;
};
using TapeMessage = std::vector<TapeField>;

/// How a token's value is read.
struct TapeToken {
    int number;
    const char* name;
    unsigned storage;
};
extern const TapeToken TAPE_TOKENS[];
extern const std::size_t TAPE_TOKEN_COUNT;

/// A dictionary with the tokens of the tape among some hundreds of others.
class TapeMap : public KVNAPI::DataMap {
public:
    TapeMap();
};

/// Gives the quotes and trades of a file of the trading day, as a hub would send them to a subscriber, until
/// `take` says false or all are read. Nothing when the file is absent.
void forEachTapeMessage(const std::string& path, const std::function<bool(TapeMessage&& message)>& take);
/// All of a file.
[[nodiscard]] std::vector<TapeMessage> readTape(const std::string& path);

/// The messages with their symbols replaced by `symbols` different ones of four letters, at random.
[[nodiscard]] std::vector<TapeMessage> withSymbols(std::vector<TapeMessage> messages, unsigned symbols);

/// All messages in one stream of each form.
[[nodiscard]] std::string asFrames(const std::vector<TapeMessage>& messages);
[[nodiscard]] std::string asJsonLines(const std::vector<TapeMessage>& messages);

[[nodiscard]] std::size_t fieldCount(const std::vector<TapeMessage>& messages);

} // namespace tivra_bench
