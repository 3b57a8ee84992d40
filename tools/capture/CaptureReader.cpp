#include "capture/CaptureReader.h"

#include "capture/Checksum.h"

#include <zlib.h>

#include <algorithm>
#include <utility>

namespace tivra_capture {

namespace {

std::uint32_t number32(std::string_view bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(numberAt(bytes, offset, 4));
}

std::int64_t time64(std::string_view bytes, std::size_t offset) {
    return static_cast<std::int64_t>(numberAt(bytes, offset, 8));
}

} // namespace

CaptureReader::CaptureReader(const std::string& path)
    : m_file(path, CaptureFile::Mode::Read), m_size(m_file.size()) {
    checkFileHeader();
    try {
        m_isComplete = readIndex();
    } catch (const CaptureError& error) {
        m_blocks.clear();
        m_fault = error.what();
    }
    try {
        if (!m_isComplete)
            scanBlocks();
    } catch (const CaptureError& error) {
        m_fault = error.what();
    }
}

void CaptureReader::checkFileHeader() const {
    const std::string header = m_file.read(0, kFileHeaderSize);
    if (header.size() < kFileHeaderSize || header.compare(0, kFileMagic.size(), kFileMagic) != 0)
        m_file.fail("not a capture");
    const std::uint32_t version = number32(header, 8);
    if (version != VERSION || number32(header, 12) != 0)
        m_file.fail("a capture of version " + std::to_string(version) + "; this program reads version " +
                    std::to_string(VERSION));
}

/// False when there is none, or one that was cut off.
bool CaptureReader::readIndex() {
    if (m_size < kFileHeaderSize + kIndexHeaderSize + kTrailerSize)
        return false;
    const std::string trailer = m_file.read(m_size - kTrailerSize, kTrailerSize);
    if (trailer.compare(12, kTrailerMagic.size(), kTrailerMagic) != 0)
        return false;
    const std::uint64_t end = m_size - kTrailerSize;
    const std::uint64_t offset = numberAt(trailer, 4, 8);
    if (offset < kFileHeaderSize || offset > end - kIndexHeaderSize)
        failAt(end, "the end of the file doesn't say where the index is");
    const std::string index = m_file.read(offset, static_cast<std::size_t>(end - offset));
    if (checksum(index) != number32(trailer, 0) || index.compare(0, kIndexMagic.size(), kIndexMagic) != 0 ||
        index.size() != kIndexHeaderSize + std::uint64_t{number32(index, 4)} * kIndexEntrySize)
        failAt(offset, "the index is damaged");
    std::uint64_t earliest = kFileHeaderSize;
    for (std::size_t at = kIndexHeaderSize; at < index.size(); at += kIndexEntrySize) {
        const BlockPlace place{numberAt(index, at, 8), time64(index, at + 8), number32(index, at + 16)};
        if (offset - earliest < kBlockHeaderSize || place.offset < earliest ||
            place.offset > offset - kBlockHeaderSize)
            failAt(offset, "the index names a block where none can be");
        earliest = place.offset + kBlockHeaderSize;
        m_blocks.push_back(place);
    }
    return true;
}

/// Only whole blocks count; the bytes of one that was cut off are no fault.
void CaptureReader::scanBlocks() {
    for (std::uint64_t offset = kFileHeaderSize; offset < m_size;) {
        const std::string header = m_file.read(offset, kBlockHeaderSize);
        const std::size_t magic = std::min(header.size(), kIndexMagic.size());
        if (header.compare(0, magic, kIndexMagic.substr(0, magic)) == 0)
            return;
        if (header.size() < kBlockHeaderSize && header.compare(0, magic, kBlockMagic.substr(0, magic)) == 0)
            return;
        const BlockHeader block = readBlockHeader(offset, header);
        const std::uint64_t next = offset + kBlockHeaderSize + block.compressedLength;
        if (next > m_size)
            return;
        m_blocks.push_back({offset, block.firstNanoseconds, block.messages});
        offset = next;
    }
}

CaptureReader::BlockHeader CaptureReader::readBlockHeader(std::uint64_t offset,
                                                          const std::string& bytes) const {
    if (bytes.size() < kBlockHeaderSize || bytes.compare(0, kBlockMagic.size(), kBlockMagic) != 0)
        failAt(offset, "no block begins here");
    if (checksum(std::string_view(bytes).substr(0, kBlockHeaderSize - 4)) !=
        number32(bytes, kBlockHeaderSize - 4))
        failAt(offset, "the header of the block is damaged");
    const BlockHeader header{number32(bytes, 4), number32(bytes, 8), number32(bytes, 12), time64(bytes, 16),
                             number32(bytes, 24)};
    // Before anything of that size is allocated: whoever made the file may have meant harm.
    if (header.length > kMaxBlock || header.compressedLength > ::compressBound(header.length) ||
        header.messages > header.length / kMessageHeaderSize || header.messages == 0)
        failAt(offset, "the lengths of the block are out of bounds");
    return header;
}

void CaptureReader::loadBlock(const BlockPlace& place) {
    const BlockHeader header = readBlockHeader(place.offset, m_file.read(place.offset, kBlockHeaderSize));
    if (header.messages != place.messages || header.firstNanoseconds != place.firstNanoseconds)
        failAt(place.offset, "the block is not what the index says");
    const std::string data = m_file.read(place.offset + kBlockHeaderSize, header.compressedLength);
    if (data.size() != header.compressedLength || checksum(data) != header.checksum)
        failAt(place.offset, "the block is damaged");
    m_block.assign(header.length, '\0');
    uLongf length = header.length;
    const int result = ::uncompress(reinterpret_cast<Bytef*>(m_block.data()), &length,
                                    reinterpret_cast<const Bytef*>(data.data()), data.size());
    if (result != Z_OK || length != header.length)
        failAt(place.offset, "the block can't be uncompressed to what its header says");
    m_blockOffset = place.offset;
    m_messagesLeft = header.messages;
    m_at = 0;
}

bool CaptureReader::next(Message& message) {
    while (m_messagesLeft == 0) {
        if (m_at != m_block.size())
            failAt(m_blockOffset, "the block has bytes behind its last message");
        if (m_nextBlock == m_blocks.size()) {
            if (!m_fault.empty())
                throw CaptureError(std::exchange(m_fault, {}));
            return false;
        }
        loadBlock(m_blocks[m_nextBlock++]);
    }
    const std::size_t left = m_block.size() - m_at;
    const std::size_t length = left < kMessageHeaderSize ? left : number32(m_block, m_at + 8);
    if (left < kMessageHeaderSize || length > left - kMessageHeaderSize)
        failAt(m_blockOffset, "a message reaches beyond the block");
    if (length > kMaxBody)
        failAt(m_blockOffset, "a message is longer than any can be");
    message.nanoseconds = time64(m_block, m_at);
    message.body = std::string_view(m_block).substr(m_at + kMessageHeaderSize, length);
    m_at += kMessageHeaderSize + length;
    --m_messagesLeft;
    return true;
}

void CaptureReader::seek(std::int64_t nanoseconds) {
    std::size_t block = 0;
    while (block + 1 < m_blocks.size() && m_blocks[block + 1].firstNanoseconds <= nanoseconds)
        ++block;
    m_nextBlock = block;
    skipBlock();
}

void CaptureReader::skipBlock() {
    m_messagesLeft = 0;
    m_block.clear();
    m_at = 0;
}

std::uint64_t CaptureReader::messages() const {
    std::uint64_t sum = 0;
    for (const BlockPlace& place : m_blocks)
        sum += place.messages;
    return sum;
}

void CaptureReader::failAt(std::uint64_t offset, const std::string& what) const {
    m_file.fail("at byte " + std::to_string(offset) + ": " + what);
}

} // namespace tivra_capture
