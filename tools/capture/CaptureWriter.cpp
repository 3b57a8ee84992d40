#include "capture/CaptureWriter.h"

#include "capture/Checksum.h"

#include <zlib.h>

namespace tivra_capture {

namespace {

/// Level 1: the writer has to keep pace with the feed.
constexpr int kCompressionLevel = 1;

std::string compressed(const std::string& bytes) {
    uLongf length = ::compressBound(bytes.size());
    std::string out(length, '\0');
    const int result =
        ::compress2(reinterpret_cast<Bytef*>(out.data()), &length,
                    reinterpret_cast<const Bytef*>(bytes.data()), bytes.size(), kCompressionLevel);
    if (result != Z_OK)
        throw CaptureError("cannot compress a block of the capture: zlib says " + std::to_string(result));
    out.resize(length);
    return out;
}

} // namespace

CaptureWriter::CaptureWriter(const std::string& path) : m_file(path, CaptureFile::Mode::Replace) {
    m_out = kFileMagic;
    appendNumber(m_out, VERSION, 4);
    appendNumber(m_out, 0, 4);
    m_file.write(m_out);
    m_offset = m_out.size();
}

void CaptureWriter::add(const Message& message) {
    if (message.body.size() > kMaxBody)
        m_file.fail("a message of " + std::to_string(message.body.size()) + " bytes is too long");
    if (m_place.messages == 0)
        m_place.firstNanoseconds = message.nanoseconds;
    appendNumber(m_block, static_cast<std::uint64_t>(message.nanoseconds), 8);
    appendNumber(m_block, message.body.size(), 4);
    m_block += message.body;
    ++m_place.messages;
    ++m_messages;
    if (m_block.size() >= kBlockSize)
        flush();
}

void CaptureWriter::flush() {
    if (m_place.messages == 0)
        return;
    const std::string data = compressed(m_block);
    m_out = kBlockMagic;
    appendNumber(m_out, data.size(), 4);
    appendNumber(m_out, m_block.size(), 4);
    appendNumber(m_out, m_place.messages, 4);
    appendNumber(m_out, static_cast<std::uint64_t>(m_place.firstNanoseconds), 8);
    appendNumber(m_out, checksum(data), 4);
    appendNumber(m_out, checksum(m_out), 4);
    m_out += data;
    m_file.write(m_out);
    m_place.offset = m_offset;
    m_places.push_back(m_place);
    m_offset += m_out.size();
    m_place = {};
    m_block.clear();
}

void CaptureWriter::finish() {
    flush();
    m_out = kIndexMagic;
    appendNumber(m_out, m_places.size(), 4);
    for (const BlockPlace& place : m_places) {
        appendNumber(m_out, place.offset, 8);
        appendNumber(m_out, static_cast<std::uint64_t>(place.firstNanoseconds), 8);
        appendNumber(m_out, place.messages, 4);
    }
    const std::uint32_t sum = checksum(m_out);
    appendNumber(m_out, sum, 4);
    appendNumber(m_out, m_offset, 8);
    m_out += kTrailerMagic;
    m_file.write(m_out);
    m_file.close();
}

} // namespace tivra_capture
