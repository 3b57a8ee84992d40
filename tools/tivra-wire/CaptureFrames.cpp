#include "CaptureFrames.h"

#include "ExitCode.h"

#include "kvnparse/FrameFormat.h"

#include <capture/CaptureNote.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace tivra_wire {

namespace {

tivra_capture::CaptureReader opened(const std::string& file) {
    try {
        return tivra_capture::CaptureReader(file);
    } catch (const tivra_capture::CaptureError& error) {
        throw Failure(ExitCode::Fault, error.what());
    }
}

} // namespace

bool CaptureFrames::isCapture(const std::string& file) {
    std::error_code error;
    if (file == "-" || !std::filesystem::is_regular_file(file, error)) // a pipe can be read only once
        return false;
    std::ifstream stream(file, std::ios::binary);
    std::string start(tivra_capture::kFileMagic.size(), '\0');
    return stream.read(start.data(), static_cast<std::streamsize>(start.size())) &&
           start == tivra_capture::kFileMagic;
}

CaptureFrames::CaptureFrames(const std::string& file, const TimeRange& range)
    : m_reader(opened(file)), m_range(range.after(firstTime(m_reader))) {
    if (!m_reader.isComplete())
        fmt::print(stderr, "tivra-wire: note: the capture {} was cut off; its {} whole messages are read\n",
                   file, m_reader.messages());
    if (m_range.begin)
        m_reader.seek(*m_range.begin);
}

bool CaptureFrames::next(Frame& frame) {
    tivra_capture::Message message;
    do {
        try {
            if (!m_reader.next(message))
                return false;
        } catch (const tivra_capture::CaptureError& error) {
            throw Failure(ExitCode::Fault, error.what());
        }
    } while (!m_range.contains(message.nanoseconds));
    frame = Frame();
    frame.nanoseconds = message.nanoseconds;
    frame.offset = m_offset;
    if (tivra_capture::isNote(message.body)) {
        frame.note = message.body;
        return true;
    }
    this->frame(message.body);
    frame.bytes = m_bytes;
    frame.number = ++m_frames;
    m_offset += m_bytes.size();
    return true;
}

void CaptureFrames::frame(std::string_view body) {
    m_bytes.clear();
    m_bytes += KVNAPI::KVN_START;
    m_bytes += KVNAPI::kKvnMark;
    tivra_capture::appendNumber(m_bytes, body.size(), 4);
    m_bytes += body;
    m_bytes += KVNAPI::ETX;
}

Surroundings CaptureFrames::around(std::uint64_t offset) const {
    const std::uint64_t first = m_offset - m_bytes.size();
    const auto place = static_cast<std::size_t>(std::clamp(offset, first, m_offset) - first);
    return {std::string_view(m_bytes).substr(0, place), std::string_view(m_bytes).substr(place)};
}

} // namespace tivra_wire
