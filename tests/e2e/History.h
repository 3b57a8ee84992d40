#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What an application does with groups of hubs, and what happens to these meanwhile.
namespace history {

inline constexpr std::size_t MEMBERS = 3; ///< of the group in a history of requests
inline constexpr std::size_t SIDES = 2;   ///< primary and backup, of two members each, in one of faults

/// What a sequence of requests asks for. Every sequence has one of each, under names of its own.
enum Thing { Regional, OtherRegional, Split, News, Unknown, Pattern, ByCusip };
inline constexpr int THINGS = 7;
/// With how many different requests each can be asked for.
inline constexpr std::size_t FORMS[THINGS] = {4, 4, 4, 4, 4, 2, 1};

struct Step {
    enum Kind {
        Subscribe,
        Unsubscribe,
        Pause,  ///< the answer to a request that is sent now is waited for
        Settle, ///< every fault ends, and everything must come to rest
        // A history of faults draws from those that follow.
        Toggle,        ///< the application subscribes a symbol, or ends that
        Snap,          ///< it asks for a symbol once
        Restart,       ///< it stops the session and starts it again
        Leave,         ///< the hub is gone until the faults end
        Bounce,        ///< the hub is gone for a moment
        Drop,          ///< connections end
        Reset,         ///< connections are reset
        HalfClose,     ///< the stream ends, and the hub still listens to what it is asked
        DropSoon,      ///< connections end in the middle of the bytes to come
        Silence,       ///< nothing more comes, and the connections stand
        Deafness,      ///< nothing more is read
        Drip,          ///< a few bytes at a time
        Splitting,     ///< every frame comes in two pieces
        Garbage,       ///< bytes that are no frames
        ShutDoor,      ///< connections end, and new ones end at once
        RefuseLogin,   ///< connections end, and logins are refused a few times
        Delay,         ///< every answer comes late
        Busy,          ///< requests are told to come again
        Wrong,         ///< answers are wrong
        NewDictionary, ///< connections end, and the dictionary has a new version
        Rights,        ///< the user gets a source, or loses it
        ClockJump,     ///< the library's clock leaps ahead
        WallClockStep, ///< an administrator sets the time of day
        KINDS
    };
    Kind kind = Settle;
    std::size_t id = 0; ///< its place in the history
    std::size_t side = 0;
    std::size_t member = 0;
    unsigned amount = 0;       ///< of whatever the kind counts
    unsigned milliseconds = 0; ///< until the next step
    /// @name Of a request
    /// @{
    int sequence = -1; ///< -1 when the step belongs to none
    int thing = 0;
    int form = 0;
    bool isReversed = false; ///< the same pairs in another order
    std::size_t request = 0; ///< the step whose request is unsubscribed
    /// @}
};

struct History {
    bool hasBackup = false;
    bool hasThreadPerHub = false;
    bool isCompressed = false;
    int sequences = 0;
    std::vector<Step> steps;

    /// Requests in many sequences, each over symbols of its own so that it can be judged by itself, to a
    /// group whose members come and go. The same always for one seed, on every machine.
    static History ofRequests(std::uint64_t seed, int sequences);
    /// Whatever can go wrong on two sides.
    static History ofFaults(std::uint64_t seed);
    /// The steps of one sequence and those of none, or all of them for -1.
    [[nodiscard]] std::string text(int sequence = -1) const;
};

} // namespace history
