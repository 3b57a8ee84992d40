#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What befalls a session: two groups of two hubs, a primary and a backup side, and whatever goes wrong
/// there.
namespace chaos {

inline constexpr std::size_t SIDES = 2;
inline constexpr std::size_t MEMBERS = 2;

enum class Kind {
    Kill,          ///< the hub is gone until it clears up
    Restart,       ///< the hub is gone for a moment
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
    Wrong,         ///< answers are spoilt
    NewDictionary, ///< connections end, and the dictionary has a new version
    Rights,        ///< the user gets a source, or loses it
    ClockJump,     ///< the library's clock leaps ahead
    WallClockStep, ///< an administrator sets the time of day
    Toggle,        ///< the application subscribes a symbol, or ends that
    Snapshot,      ///< the application asks for a symbol once
    StopAndStart,  ///< the application stops the session and starts it again
    Last = StopAndStart
};

struct Event {
    Kind kind = Kind::Drop;
    std::size_t side = 0;
    std::size_t member = 0;
    unsigned amount = 0;       ///< of whatever the kind counts
    unsigned milliseconds = 0; ///< until the next event
};

/// All that is to happen. After each spell the weather clears, and everything must come to rest.
struct Forecast {
    std::uint64_t seed = 0;
    bool hasBackup = false;
    bool hasThreadPerHub = false;
    bool isCompressed = false;
    std::vector<std::vector<Event>> spells;

    static Forecast random(std::uint64_t seed);
    [[nodiscard]] std::string text() const;
};

} // namespace chaos
