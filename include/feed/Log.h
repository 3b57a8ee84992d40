#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string_view>

#include "TivraApi.h"

namespace tivra {

/// How much a line of the log matters, from the gravest; a level that is set lets those above it pass too.
enum class LogLevel {
    Critical,    ///< something is refused or can't go on; somebody has to look
    Warning,     ///< something was lost, or isn't as it should be; the library goes on
    Information, ///< the course of things: connections, logins, states
    Debug        ///< retries, requests and single steps
};

/// What a line of the log is about.
enum class LogArea {
    Other,      ///< none of those below: configuration and feeds, for example
    Connection, ///< dialling, connections and their loss, the states of hubs and session
    Login,      ///< users and entitlements
    Dictionary, ///< fields, sources and enumerations of the hubs
    Requests,   ///< what is asked for, its routes, and what stands
    Queue,      ///< receive queues, and what is read into them
    Statistics  ///< counters
};

/// A line of the log, for the sink. Passwords in it are masked. Valid during the call.
struct LogLine {
    LogLevel level = LogLevel::Information;     ///< how much it matters
    LogArea area = LogArea::Other;              ///< by the place in the library that wrote it
    std::chrono::system_clock::time_point time; ///< when it was written, by this machine's clock
    std::string_view text;                      ///< without time, level and prefix
};

/// The log of the process, which all feeds and sessions share. Its file is named by FeedOptions::logFile or
/// APIFactory::initialize; without one a sink gets its lines all the same.
/// @thread any
class TIVRA_API Log {
public:
    /// What gets the lines; see setSink().
    using Sink = std::function<void(const LogLine&)>;

    Log() = delete;

    /// Has each line handed to the sink too, one at a time and in order; an empty one ends that. When this
    /// returns, the former sink has had the lines that were meant for it and is called no more, unless this
    /// is called inside it.
    ///
    /// The sink runs on a thread of its own that holds nothing of the library, so it may call the library.
    /// What it logs by that on its thread is dropped, and so is an exception that leaves it. Whoever logs
    /// doesn't wait for a slow sink: with more than a thousand lines waiting the next are lost, and a line
    /// says how many. A forked child has no sink until it sets one.
    /// @throws std::system_error when the system refuses a thread
    static void setSink(Sink sink);

    /// The most that is written, of each area that has no level of its own. A feed's logFile and
    /// APIFactory::initialize set it to Information, or to Debug when they are asked to.
    static void setLevel(LogLevel level);
    /// The most that is written of an area.
    static void setLevel(LogArea area, LogLevel level);
    /// The area has the general level again.
    static void resetLevel(LogArea area);

    /// Times in the file get milliseconds ("Nov 24 09:30:00.123"). Off in the beginning.
    static void setMilliseconds(bool isOn);
    /// The most bytes of a log file; 0 for any number, as in the beginning. One that would become larger is
    /// renamed to NAME.1, what has that name to NAME.2, and so on up to `kept`; the oldest goes. Not for a
    /// file that several processes write.
    static void setFileLimit(std::uint64_t bytes, unsigned kept);
    /// Lines of one place in the library that come too often are folded into "last message repeated 811
    /// times: TEXT" in place of "TEXT (repeated 811 times)", and lines about requests come once a second at
    /// most for each place. Off in the beginning.
    static void setFolding(bool isOn);
};

} // namespace tivra
