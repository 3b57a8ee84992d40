#pragma once

#include <cstddef>
#include <functional>

#include <sys/types.h>

namespace tivra_bench {

/// A part of a benchmark in a process of its own, so that its work, or its memory, does not count as that of
/// the others. Made before any thread runs; it ends with its parent.
class ChildProcess {
public:
    /// The two ends that the child has of the pipes to its parent.
    struct Ends {
        int tell;    ///< to the parent
        int control; ///< from the parent; ends when that closes its side
    };

    /// `work` is all that the child does. An exception in it ends the child with a line on standard error.
    explicit ChildProcess(const std::function<void(const Ends&)>& work);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Reads what the child tells; false when it ended before it had told as much.
    [[nodiscard]] bool read(void* data, std::size_t size) const;
    /// Throws std::runtime_error when the child has gone.
    void write(char byte) const;

private:
    pid_t m_pid = -1;
    int m_hear = -1;
    int m_control = -1;
};

/// Writes all of it; false when the reader has gone.
[[nodiscard]] bool writeAll(int fd, const void* data, std::size_t size);

} // namespace tivra_bench
