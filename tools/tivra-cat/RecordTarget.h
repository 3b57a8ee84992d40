#pragma once

#include <capture/CaptureFormat.h>

#include <cstdint>
#include <memory>
#include <string>

namespace tivra_cat {

/// A file that messages are recorded in. All throw tivra_capture::CaptureError when it can't be written. One
/// thread at a time.
class RecordTarget {
public:
    enum class Form {
        Capture, ///< messages with their times
        Wire     ///< frames as hubs send them, before compression, one after the other
    };

    /// An existing file is replaced.
    [[nodiscard]] static std::unique_ptr<RecordTarget> open(const std::string& path, Form form);
    virtual ~RecordTarget() = default;

    virtual void add(const tivra_capture::Message& message) = 0;
    /// Has what waits survive whatever comes.
    virtual void flush() = 0;
    /// The last call.
    virtual void finish() = 0;
};

} // namespace tivra_cat
