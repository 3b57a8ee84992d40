#pragma once

#include "captures/FieldScan.h"
#include "captures/MessageSource.h"

#include <capture/CaptureReader.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tivra_python {

/// The messages of a capture.
class CaptureSource final : public MessageSource {
public:
    /// Begins with the block that holds the first message from `start` on, when the blocks are in the order
    /// of their times. Throws FileFault.
    CaptureSource(const std::string& path, std::optional<std::int64_t> start);

    [[nodiscard]] bool next(SourceMessage& message) override;
    /// Passes over the damaged block.
    [[nodiscard]] bool goOn() override {
        m_reader.skipBlock();
        return true;
    }

    [[nodiscard]] bool isComplete() const { return m_reader.isComplete(); }
    /// In the whole file.
    [[nodiscard]] std::uint64_t messages() const { return m_reader.messages(); }

private:
    tivra_capture::CaptureReader m_reader;
};

/// Looks through all messages of a capture that can be read.
[[nodiscard]] FieldScan scanCapture(const std::string& path, const Pause& pause);

} // namespace tivra_python
