#pragma once

#include "capture/CaptureFile.h"
#include "capture/CaptureFormat.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tivra_capture {

/// Reads a capture, one block in memory at a time. What is damaged throws CaptureError with the file, the
/// block and its offset, after what stands in front of it; what was cut off ends where it was cut. One thread
/// at a time.
class CaptureReader {
public:
    /// Opens the file and finds its blocks, by its index or, when that was cut off or is damaged, from header
    /// to header.
    explicit CaptureReader(const std::string& path);

    /// The next message, in the order in which they were written; its body is valid until the next call.
    /// @return false behind the last.
    [[nodiscard]] bool next(Message& message);

    /// Goes to the start of the last block that begins at `nanoseconds` or before; only blocks behind are
    /// read.
    void seek(std::int64_t nanoseconds);

    /// Leaves what is left of the present block, so that next() goes on behind one that is damaged.
    void skipBlock();

    /// Whether the file has its end. One that was cut off holds all messages up to the last whole block.
    [[nodiscard]] bool isComplete() const { return m_isComplete; }
    /// The blocks in their order.
    [[nodiscard]] const std::vector<BlockPlace>& blocks() const { return m_blocks; }
    [[nodiscard]] std::uint64_t messages() const;

private:
    /// A block's header, after its checksum has been found right.
    struct BlockHeader {
        std::uint32_t compressedLength = 0;
        std::uint32_t length = 0;
        std::uint32_t messages = 0;
        std::int64_t firstNanoseconds = 0;
        std::uint32_t checksum = 0; ///< of the compressed bytes
    };

    void checkFileHeader() const;
    [[nodiscard]] bool readIndex();
    void scanBlocks();
    [[nodiscard]] BlockHeader readBlockHeader(std::uint64_t offset, const std::string& bytes) const;
    void loadBlock(const BlockPlace& place);
    [[noreturn]] void failAt(std::uint64_t offset, const std::string& what) const;

    CaptureFile m_file;
    const std::uint64_t m_size;
    std::vector<BlockPlace> m_blocks;
    bool m_isComplete = false;
    std::string m_fault; ///< of the index or of what follows the blocks, told behind the last of them
    std::size_t m_nextBlock = 0;
    std::string m_block; ///< the present block, uncompressed
    std::size_t m_at = 0;
    std::uint64_t m_blockOffset = 0;
    std::uint32_t m_messagesLeft = 0;
};

} // namespace tivra_capture
