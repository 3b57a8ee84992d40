#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <tivra.h>

/// What an application did to a group of three hubs, and what the group did meanwhile. Many sequences of
/// requests run through one history, each over symbols of its own, so that each can be judged by itself.
namespace standing {

inline constexpr std::size_t MEMBERS = 3;
inline constexpr std::size_t NO_STEP = static_cast<std::size_t>(-1);

/// What a sequence asks for. Every sequence has one of each, under names of its own.
enum Thing { Regional, OtherRegional, Split, News, Unknown, Pattern, ByCusip };
inline constexpr int THINGS = 7;

struct Target {
    int source = 0;
    std::string name;              ///< symbol or pattern; empty when named by `cusip`
    std::string cusip;             ///< an alternate identifier
    std::string symbol;            ///< that the group has for it; empty for none
    std::set<std::size_t> asked;   ///< members that a request reaches
    std::set<std::size_t> holders; ///< of these, the ones that accept it
};

Target targetOf(int sequence, int thing);

struct Step {
    enum Kind {
        Subscribe,
        Unsubscribe,
        Snap,
        Pause,    ///< the answer to a request that is sent now is waited for
        Drop,     ///< a member closes its connection
        DropSoon, ///< the same when that many more frames have gone out on it
        Leave,    ///< a member is stopped
        Return,   ///< and started again
        Restart,  ///< of the session, by the application
        Settle    ///< wait until all is done, and compare
    };
    Kind kind = Settle;
    std::size_t id = NO_STEP;
    int sequence = -1; ///< -1 when the step belongs to none
    int thing = 0;
    int form = 0;                  ///< which of the requests that a thing can be asked with
    bool isReversed = false;       ///< the same pairs in another order
    std::size_t request = NO_STEP; ///< the step whose request is to be unsubscribed
    std::size_t member = 0;
    unsigned frames = 0;

    [[nodiscard]] bool isRequest() const { return kind == Subscribe || kind == Unsubscribe || kind == Snap; }
    [[nodiscard]] std::string text() const;
};

/// The command and the pairs of a subscription or snapshot.
struct Asking {
    tivra::Commands command = tivra::SUBSCRIBE;
    std::string word; ///< as it goes to a hub
    std::vector<std::pair<int, std::string>> pairs;

    /// The whole text as a hub gets it.
    [[nodiscard]] std::string text(std::int64_t tag) const;
};

Asking askingOf(const Step& step);

struct History {
    std::uint64_t seed = 0;
    int sequences = 0;
    bool hasThreadPerHub = false;
    std::vector<Step> steps;

    /// The same history always for one seed, on every machine.
    static History random(std::uint64_t seed, int sequences);
    /// The steps of one sequence, and those of none.
    [[nodiscard]] History of(int sequence) const;
    [[nodiscard]] std::string text() const;
};

} // namespace standing
