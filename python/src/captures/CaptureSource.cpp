#include "captures/CaptureSource.h"

#include "captures/FileFault.h"

#include <capture/CaptureNote.h>

#include <algorithm>

namespace tivra_python {

using tivra_capture::BlockPlace;
using tivra_capture::CaptureError;
using tivra_capture::CaptureReader;

namespace {

CaptureReader open(const std::string& path) {
    try {
        return CaptureReader(path);
    } catch (const CaptureError& error) {
        throw FileFault(error.what());
    }
}

} // namespace

CaptureSource::CaptureSource(const std::string& path, std::optional<std::int64_t> start)
    : m_reader(open(path)) {
    const auto isEarlier = [](const BlockPlace& a, const BlockPlace& b) {
        return a.firstNanoseconds < b.firstNanoseconds;
    };
    // Where the clock was set back, messages from `start` on may stand in front of that block.
    if (start && std::is_sorted(m_reader.blocks().begin(), m_reader.blocks().end(), isEarlier))
        m_reader.seek(*start);
}

bool CaptureSource::next(SourceMessage& message) {
    tivra_capture::Message recorded;
    try {
        if (!m_reader.next(recorded))
            return false;
    } catch (const CaptureError& error) {
        throw FileFault(error.what());
    }
    message = {recorded.nanoseconds, recorded.body};
    return true;
}

FieldScan scanCapture(const std::string& path, const Pause& pause) {
    FieldScan scan;
    CaptureSource source(path, std::nullopt);
    SourceMessage message;
    std::uint64_t messages = 0;
    for (bool isMore = true; isMore;) {
        if (++messages % kPauseEvery == 0)
            pause();
        try {
            isMore = source.next(message);
            if (isMore && !tivra_capture::isNote(message.body))
                scan.add(message.body);
        } catch (const FileFault&) {
            isMore = source.goOn(); // whoever reads the file meets it again
        }
    }
    return scan;
}

} // namespace tivra_python
