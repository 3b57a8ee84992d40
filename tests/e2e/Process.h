#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <thread>

/// What a run of a test may be told by the environment.
inline std::uint64_t setting(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

inline std::size_t entriesOf(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}
inline std::size_t threads() {
    return entriesOf("/proc/self/task");
}
inline std::size_t descriptors() {
    return entriesOf("/proc/self/fd");
}
/// The threads, once they are `expected` or don't become so: the system lists a joined thread for a moment
/// longer.
inline std::size_t threadsOnce(std::size_t expected) {
    for (int turn = 0; turn < 1'000'000 && threads() != expected; ++turn)
        std::this_thread::yield();
    return threads();
}
