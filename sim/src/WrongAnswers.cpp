#include "WrongAnswers.h"

#include <algorithm>
#include <optional>

namespace tivra_sim {

namespace {

/// Far from any tag that a client has in use.
constexpr long long kForeignTag = 900000000000LL;

/// The body with what `change` makes of the value of each pair of `token`; no value leaves the pair out.
template<class Change>
std::string withChanged(const std::string& body, int token, const Change& change) {
    Record record;
    for (const Pair& pair : splitPairs(body)) {
        const std::optional<std::string> value =
            pair.token == token ? change(pair.value) : std::optional<std::string>(pair.value);
        if (value)
            record.add(pair.token, *value);
    }
    return record.body();
}

} // namespace

std::vector<std::string> spoilt(const std::vector<std::string>& bodies, Hub::Wrong how) {
    std::vector<std::string> result;
    for (const std::string& body : bodies) {
        switch (how) {
        case Hub::Wrong::Tag:
            result.push_back(
                withChanged(body, token::TAG, [](std::string_view) -> std::optional<std::string> {
                    return std::to_string(kForeignTag);
                }));
            break;
        case Hub::Wrong::Twice:
            result.push_back(body);
            break;
        case Hub::Wrong::NoStatus:
            result.push_back(withChanged(body, token::STATUS,
                                         [](std::string_view) { return std::optional<std::string>(); }));
            break;
        case Hub::Wrong::Garbage:
            result.emplace_back(std::max<std::size_t>(body.size(), 8), '?');
            break;
        }
    }
    if (how == Hub::Wrong::Twice)
        result.insert(result.end(), bodies.begin(), bodies.end());
    return result;
}

} // namespace tivra_sim
