// What may be set of the log beside its file: a callback, a level for each area, and how the file looks and
// grows.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tp {

/// A line for the callback: the message alone, passwords masked, without time and prefix.
struct LogRecord {
    int level = 0;     ///< EPF_CRIT to EPF_DBUG
    int area = 0;      ///< what the classifier says, 0 without one
    double time = 0.0; ///< seconds since the epoch
    std::string text;
};
using LogCallback = std::function<void(const LogRecord&)>;

/// Has each line from now on handed to the callback too, on a thread of its own that holds no lock; an empty
/// one ends that. Lines that the former one has yet to get are delivered before this returns, unless it is
/// called inside the callback. With more than a thousand lines waiting others are lost, and their number is
/// reported. What a callback logs on its thread is dropped, and so is what it throws.
/// @throws std::system_error when the system refuses a thread
void setLogCallback(LogCallback callback);

/// Lines belong to one of so many areas, by their source file.
inline constexpr int kMostLogAreas = 16;
using LogClassifier = int (*)(const char* file) noexcept;
void setLogClassifier(LogClassifier classifier) noexcept;
/// The lines of an area have this level, EPF_CRIT to EPF_DBUG, as their limit in place of the log's; -1 for
/// the log's again.
void setLogAreaLevel(int area, int level) noexcept;
void setLogLevel(int level) noexcept;

/// Times in the file have milliseconds.
void setLogMilliseconds(bool isOn) noexcept;
/// A file that would become larger is renamed to NAME.1, that one to NAME.2 and so on, as far as `kept`, and
/// a new one is begun; 0 bytes for any size. For a file that no other process writes.
void setLogFileLimit(std::uint64_t bytes, unsigned kept) noexcept;
/// Lines of one place that come too often are reported as "last message repeated N times: TEXT", and those of
/// one area, if it isn't below 0, are written once a second at most.
void setLogFolding(bool isOn, int calmArea) noexcept;

} // namespace tp
