#include "capture/CaptureReader.h"

#include "capture/Checksum.h"

#include <zlib.h>

#include <algorithm>

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
    m_isComplete = readIndex();
    if (!m_isComplete)
        scanBlocks();
}

void CaptureReader::checkFileHeader() const {
    const std::string header = m_file.read(0, FILE_HEADER_SIZE);
    if (header.size() < FILE_HEADER_SIZE || header.compare(0, FILE_MAGIC.size(), FILE_MAGIC) != 0)
        m_file.fail("not a capture");
    const std::uint32_t version = number32(header, 8);
    if (version != VERSION || number32(header, 12) != 0)
        m_file.fail("a capture of version " + std::to_string(version) + "; this program reads version " +
                    std::to_string(VERSION));
}

/// False when there is none, or one that was cut off.
bool CaptureReader::readIndex() {
    if (m_size < FILE_HEADER_SIZE + INDEX_HEADER_SIZE + TRAILER_SIZE)
        return false;
    const std::string trailer = m_file.read(m_size - TRAILER_SIZE, TRAILER_SIZE);
    if (trailer.compare(12, TRAILER_MAGIC.size(), TRAILER_MAGIC) != 0)
        return false;
    const std::uint64_t end = m_size - TRAILER_SIZE;
    const std::uint64_t offset = numberAt(trailer, 4, 8);
    if (offset < FILE_HEADER_SIZE || offset > end - INDEX_HEADER_SIZE)
        failAt(end, "the end of the file doesn't say where the index is");
    const std::string index = m_file.read(offset, static_cast<std::size_t>(end - offset));
    if (checksum(index) != number32(trailer, 0) || index.compare(0, INDEX_MAGIC.size(), INDEX_MAGIC) != 0 ||
        index.size() != INDEX_HEADER_SIZE + std::uint64_t{number32(index, 4)} * INDEX_ENTRY_SIZE)
        failAt(offset, "the index is damaged");
    std::uint64_t earliest = FILE_HEADER_SIZE;
    for (std::size_t at = INDEX_HEADER_SIZE; at < index.size(); at += INDEX_ENTRY_SIZE) {
        const BlockPlace place{numberAt(index, at, 8), time64(index, at + 8), number32(index, at + 16)};
        if (offset - earliest < BLOCK_HEADER_SIZE || place.offset < earliest ||
            place.offset > offset - BLOCK_HEADER_SIZE)
            failAt(offset, "the index names a block where none can be");
        earliest = place.offset + BLOCK_HEADER_SIZE;
        m_blocks.push_back(place);
    }
    return true;
}

/// Only whole blocks count; the bytes of one that was cut off are no fault.
void CaptureReader::scanBlocks() {
    for (std::uint64_t offset = FILE_HEADER_SIZE; offset < m_size;) {
        const std::string header = m_file.read(offset, BLOCK_HEADER_SIZE);
        const std::size_t magic = std::min(header.size(), INDEX_MAGIC.size());
        if (header.compare(0, magic, INDEX_MAGIC.substr(0, magic)) == 0)
            return;
        if (header.size() < BLOCK_HEADER_SIZE && header.compare(0, magic, BLOCK_MAGIC.substr(0, magic)) == 0)
            return;
        const BlockHeader block = readBlockHeader(offset, header);
        const std::uint64_t next = offset + BLOCK_HEADER_SIZE + block.compressedLength;
        if (next > m_size)
            return;
        m_blocks.push_back({offset, block.firstNanoseconds, block.messages});
        offset = next;
    }
}

CaptureReader::BlockHeader CaptureReader::readBlockHeader(std::uint64_t offset,
                                                          const std::string& bytes) const {
    if (bytes.size() < BLOCK_HEADER_SIZE || bytes.compare(0, BLOCK_MAGIC.size(), BLOCK_MAGIC) != 0)
        failAt(offset, "no block begins here");
    if (checksum(std::string_view(bytes).substr(0, BLOCK_HEADER_SIZE - 4)) !=
        number32(bytes, BLOCK_HEADER_SIZE - 4))
        failAt(offset, "the header of the block is damaged");
    const BlockHeader header{number32(bytes, 4), number32(bytes, 8), number32(bytes, 12), time64(bytes, 16),
                             number32(bytes, 24)};
    // Before anything of that size is allocated: whoever made the file may have meant harm.
    if (header.length > MAX_BLOCK || header.compressedLength > ::compressBound(header.length) ||
        header.messages > header.length / MESSAGE_HEADER_SIZE || header.messages == 0)
        failAt(offset, "the lengths of the block are out of bounds");
    return header;
}

void CaptureReader::loadBlock(const BlockPlace& place) {
    const BlockHeader header = readBlockHeader(place.offset, m_file.read(place.offset, BLOCK_HEADER_SIZE));
    if (header.messages != place.messages || header.firstNanoseconds != place.firstNanoseconds)
        failAt(place.offset, "the block is not what the index says");
    const std::string data = m_file.read(place.offset + BLOCK_HEADER_SIZE, header.compressedLength);
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
        if (m_nextBlock == m_blocks.size())
            return false;
        loadBlock(m_blocks[m_nextBlock++]);
    }
    const std::size_t left = m_block.size() - m_at;
    const std::size_t length = left < MESSAGE_HEADER_SIZE ? left : number32(m_block, m_at + 8);
    if (left < MESSAGE_HEADER_SIZE || length > left - MESSAGE_HEADER_SIZE)
        failAt(m_blockOffset, "a message reaches beyond the block");
    if (length > MAX_BODY)
        failAt(m_blockOffset, "a message is longer than any can be");
    message.nanoseconds = time64(m_block, m_at);
    message.body = std::string_view(m_block).substr(m_at + MESSAGE_HEADER_SIZE, length);
    m_at += MESSAGE_HEADER_SIZE + length;
    --m_messagesLeft;
    return true;
}

void CaptureReader::seek(std::int64_t nanoseconds) {
    std::size_t block = 0;
    while (block + 1 < m_blocks.size() && m_blocks[block + 1].firstNanoseconds <= nanoseconds)
        ++block;
    m_nextBlock = block;
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
