#ifndef TIVRA_TESTS_TOOLS_PROCESS_H
#define TIVRA_TESTS_TOOLS_PROCESS_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

/// A program under test as a process of its own, with its outputs collected while it runs. Killed at the end
/// of its life if it still runs.
class Process {
public:
    struct Setup {
        std::string program;
        std::vector<std::string> arguments;
        std::map<std::string, std::string> environment; ///< the whole of it
        std::string input;                              ///< standard input, else empty
        bool isOnTerminal = false;  ///< standard input, output and error are one terminal of its own
        bool collectsOutput = true; ///< false leaves standard output unread until collectOutput
    };
    using Deadline = std::chrono::milliseconds;

    explicit Process(const Setup& setup);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void signal(int number) const;
    /// Begins to read a standard output that was left unread.
    void collectOutput();
    /// Closes the reading end of a standard output that was left unread.
    void closeOutput();
    /// Types on its terminal.
    void type(const std::string& text) const;

    /// Waits until what was printed so far satisfies `predicate`.
    bool waitForOutput(const std::function<bool(const std::string&)>& predicate,
                       Deadline deadline = Deadline(60000));
    bool waitForError(const std::function<bool(const std::string&)>& predicate,
                      Deadline deadline = Deadline(60000));
    /// Waits for the end and for all of its output. -1 when it was killed at the deadline, else its exit
    /// code, or 1000 and the signal that ended it.
    int waitForEnd(Deadline deadline = Deadline(60000));

    /// @name Complete after waitForEnd; on a terminal both come as output.
    /// @{
    [[nodiscard]] std::string output() const { return textOf(m_output); }
    [[nodiscard]] std::string error() const { return textOf(m_error); }
    /// @}

private:
    struct Stream {
        int fd = -1;
        std::string text;
        bool isAtEnd = true;
        std::thread reader;
    };

    void spawn(const Setup& setup, int in, int out, int err);
    void startReader(Stream& stream);
    bool waitFor(const Stream& stream, const std::function<bool(const std::string&)>& predicate,
                 Deadline deadline);
    std::string textOf(const Stream& stream) const;

    pid_t m_pid = -1;
    int m_status = -1;
    bool m_hasEnded = false;
    mutable std::mutex m_mutex; ///< guards text and isAtEnd of both streams
    std::condition_variable m_changed;
    Stream m_output;
    Stream m_error;
};

#endif
