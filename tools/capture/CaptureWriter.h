#pragma once

#include "capture/CaptureFile.h"
#include "capture/CaptureFormat.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tivra_capture {

/// Writes a capture: messages gather in a block, which goes out compressed when it is full or flushed, and
/// the index follows at the end. Everything throws CaptureError when the file can't be written. One thread at
/// a time.
class CaptureWriter {
public:
    /// An existing file is replaced.
    explicit CaptureWriter(const std::string& path);

    /// Adds one message behind the others; its time may be before theirs.
    void add(const Message& message);
    /// Writes the messages that wait as a block of their own, so that they survive whatever comes.
    void flush();
    /// Writes what waits and the index, and closes the file. The last call; without it the file is one that
    /// was cut off.
    void finish();

    [[nodiscard]] std::uint64_t messages() const { return m_messages; }

private:
    CaptureFile m_file;
    std::uint64_t m_offset = 0;
    std::uint64_t m_messages = 0;
    std::string m_block; ///< what waits, uncompressed
    BlockPlace m_place;  ///< of the block that waits
    std::vector<BlockPlace> m_places;
    std::string m_out;
};

} // namespace tivra_capture
