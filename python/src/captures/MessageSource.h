#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace tivra_python {

/// A message as it lies in a file.
struct SourceMessage {
    std::int64_t received = 0; ///< nanoseconds since 1970-01-01 00:00 UTC
    std::string_view body;     ///< valid until the next is asked for
};

/// Called now and then while a file is read, and may end that by an exception.
using Pause = std::function<void()>;

/// Messages between two pauses; a few milliseconds.
inline constexpr std::uint64_t kPauseEvery = 16384;

/// Where messages come from. One thread at a time.
class MessageSource {
public:
    virtual ~MessageSource() = default;

    /// The next message; false behind the last. Throws FileFault.
    [[nodiscard]] virtual bool next(SourceMessage& message) = 0;

    /// After a fault: passes over what is damaged. False when there is no way on.
    [[nodiscard]] virtual bool goOn() { return false; }
};

} // namespace tivra_python
