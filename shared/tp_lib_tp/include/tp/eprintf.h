// The process-wide logger. It works before anything has been initialised, from any thread.
#pragma once

#include <cerrno>
#include <cstddef>

namespace tp {

/// Where lines go; a set of bits.
enum logsink_t {
    EPF_STDOUT = 1,
    EPF_STDERR = 2,
    EPF_SYSLOG = 4,
    EPF_FILE = 8,
};

/// How much a line matters. The ALWAYS forms are the same levels without repeat suppression and pacing.
enum loglvl_t {
    EPF_CRIT = 0,
    EPF_WARN = 1,
    EPF_INFO = 2,
    EPF_DBUG = 3,
    EPF_ALWAYS_CRIT = 4,
    EPF_ALWAYS_WARN = 5,
    EPF_ALWAYS_INFO = 6,
    EPF_ALWAYS_DBUG = 7,
};

/// How a line looks; a set of bits.
enum logopt_t : unsigned char {
    EPF_NOOPTIONS = 0,
    EPF_TIMESTAMP = 1,       ///< a time at the start of the line, and the date in the file's name
    EPF_FILEINFO = 2,        ///< source file and line
    EPF_LEVELS = 4,          ///< the level word
    EPF_COLOR = 8,           ///< colour escapes
    EPF_SUPPRESS = 16,       ///< at most one line a second per call site
    EPF_FUNCNAME = 32,       ///< the function
    EPF_MUTE = 64,           ///< nothing is logged at all
    EPF_SHORTFILENAME = 128, ///< the source file without its directories
    EPF_ALLOPTIONS = 255,
};

constexpr logsink_t operator|(logsink_t a, logsink_t b) noexcept {
    return static_cast<logsink_t>(static_cast<int>(a) | static_cast<int>(b));
}
constexpr logopt_t operator|(logopt_t a, logopt_t b) noexcept {
    return static_cast<logopt_t>(static_cast<int>(a) | static_cast<int>(b));
}

inline constexpr logopt_t EPF_OPTS_DEFAULTS =
    EPF_TIMESTAMP | EPF_FILEINFO | EPF_LEVELS | EPF_SUPPRESS | EPF_SHORTFILENAME;

enum logoptact_t {
    EPF_ENABLE = 1,
    EPF_DISABLE = 2,
    EPF_DEFAULT = 4,
};

/// Longest file name and prefix that are kept, in characters.
inline constexpr std::size_t kEprintfNameMax = 63;

/// Sets the base of the log file's name. Takes effect at the next eprintf_init().
/// @return false when the name was cut to kEprintfNameMax characters
bool eprintf_set_filename(const char* filename);

/// Starts logging to the sinks, with the default options, up to and including a level. The format and
/// what follows make the prefix of each line in the file, cut to kEprintfNameMax characters.
/// @return false when there is no memory for the buffer or the log file can't be opened; lines for the
///         file are lost then, and the cause has been written to standard error
bool eprintf_init(logsink_t sink, loglvl_t lvl, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/// Unless eprintf_init() has been called, nothing is logged until it is: standard error is the host's.
void eprintf_mute_until_init();

/// Sets (EPF_ENABLE) or clears (EPF_DISABLE) option bits, or restores the default options (EPF_DEFAULT).
void eprintf_ctrl(logoptact_t act, logopt_t opt);

/// Pacing, which eprintf_init() turns on, keeps a call site from flooding the log: of its critical, warning
/// and information lines the first ten in ten seconds are written as they are, the others counted, and the
/// count reported each ten seconds as one line of the same level that ends in "(repeated N times)".
void eprintf_set_pacing(bool isOn);

/// Reports the counts that are due. Each line that is logged does so too; call it now and then, so that the
/// count of a site doesn't wait for the next line. Any thread.
void eprintf_report_repeats();

/// Writes one line. Call it as eprintf(lvl, format, ...). errno is kept. In every line a password
/// ("5029=...") is masked, and a byte that isn't a printable ASCII character stands as \xNN.
void real_eprintf(loglvl_t lvl, const char* file, int line, const char* func, const char* fmt, ...)
    __attribute__((format(printf, 5, 6)));

/// Writes one line that ends in ": (number) text" of an error. Call it as eperror(lvl, format, ...).
void real_eperror(loglvl_t lvl, const char* file, int line, const char* func, int error, const char* fmt, ...)
    __attribute__((format(printf, 6, 7)));

/// Writes the logger's state as text, at most len - 1 bytes and a zero. Takes no lock, so that it can
/// still be used when the mutex is damaged.
/// @return the length of the text
std::size_t eprintf_dump(char* buf, std::size_t len);

/// Reports the counts, closes the file and frees the buffer. The logger stays usable for its other sinks.
void eprintf_cleanup();

} // namespace tp

// Call sites name levels, sinks and options as they name the macros: without a namespace.
using enum tp::logsink_t;
using enum tp::loglvl_t;
using enum tp::logopt_t;
using enum tp::logoptact_t;

#define eprintf(lvl, ...) ::tp::real_eprintf(lvl, __FILE__, __LINE__, __func__, __VA_ARGS__)
#define eperror(lvl, ...) ::tp::real_eperror(lvl, __FILE__, __LINE__, __func__, errno, __VA_ARGS__)
