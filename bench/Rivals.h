#pragma once

#include <memory>
#include <string>
#include <vector>

namespace tivra_bench {

/// A parser of some other library over messages in its own form. The result depends on every converted value.
class Rival {
public:
    Rival() = default;
    Rival(const Rival&) = delete;
    Rival& operator=(const Rival&) = delete;
    virtual ~Rival() = default;
    virtual double parseAll() = 0;
};

/// The fields of one message: number, kind ('i', 'd' or 's') and text.
struct RivalField {
    int token;
    char kind;
    std::string value;
};

std::unique_ptr<Rival> newSimdjsonRival(const std::string& jsonLines);
std::unique_ptr<Rival> newQuickfixRival(const std::vector<std::vector<RivalField>>& messages);

} // namespace tivra_bench
