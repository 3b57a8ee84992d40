#pragma once

#include "FrameSource.h"
#include "TimeRange.h"

#include <capture/CaptureReader.h>

#include <string>

namespace tivra_wire {

/// The messages of a capture as the frames that a hub sent them in, with their times, and its notes between
/// them.
class CaptureFrames : public FrameSource {
public:
    /// Whether a file begins as a capture does; false for one that can't be read.
    [[nodiscard]] static bool isCapture(const std::string& file);

    /// Says on standard error when the capture was cut off. Throws Failure with ExitCode::Fault for one that
    /// is damaged, as next does.
    CaptureFrames(const std::string& file, const TimeRange& range);

    [[nodiscard]] Form form() const override { return Form::Capture; }
    [[nodiscard]] bool next(Frame& frame) override;
    [[nodiscard]] std::uint64_t frames() const override { return m_frames; }
    [[nodiscard]] std::uint64_t offset() const override { return m_offset; }
    [[nodiscard]] Surroundings around(std::uint64_t offset) const override;

private:
    void frame(std::string_view body);

    tivra_capture::CaptureReader m_reader;
    const TimeRange m_range; ///< absolute
    std::string m_bytes;     ///< the present frame
    std::uint64_t m_frames = 0;
    std::uint64_t m_offset = 0; ///< behind it
};

} // namespace tivra_wire
