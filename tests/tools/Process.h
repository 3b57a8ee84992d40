#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>

/// Looks at something until it is so, for the time at the most.
bool comesTrue(const std::function<bool()>& isSo, std::chrono::milliseconds time = std::chrono::minutes(1));

std::string textOf(const std::string& file);

/// A shell's command line as a process in a session of its own, whose outputs are files. Killed at the end of
/// its life if it still runs.
class Process {
public:
    using Predicate = std::function<bool(const std::string&)>;
    enum class Place {
        Files,   ///< standard input is empty
        Terminal ///< standard input, output and error are one terminal, and what it shows is the output
    };

    Process(const std::string& folder, const std::string& line, Place place);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void signal(int number) const;
    /// Types on its terminal.
    void type(const std::string& text) const;

    /// Waits until what was printed so far satisfies `predicate`.
    bool waitForOutput(const Predicate& predicate) { return waitFor(predicate, m_output); }
    bool waitForError(const Predicate& predicate) { return waitFor(predicate, m_error); }
    /// -1 when it still runs after the time, else its exit code, or 1000 and the signal that ended it.
    int waitForEnd(std::chrono::milliseconds time = std::chrono::minutes(1));

    [[nodiscard]] std::string output() const { return textOf(m_output); }
    [[nodiscard]] std::string error() const { return textOf(m_error); }

private:
    bool hasEnded();
    bool waitFor(const Predicate& predicate, const std::string& file);

    std::string m_output;
    std::string m_error;
    pid_t m_pid = -1;
    int m_terminal = -1;
    std::thread m_screen; ///< writes down what the terminal shows
    std::optional<int> m_status;
};
