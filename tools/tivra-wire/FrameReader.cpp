#include "FrameReader.h"

#include "kvnparse/FrameFormat.h"

#include <fmt/format.h>

#include <algorithm>

namespace tivra_wire {

namespace {

constexpr std::size_t kBlock = 65536;

Form formOf(std::string_view start) {
    if (start.empty() || start[0] == KVNAPI::KVN_START)
        return Form::Kvn;
    const auto byteAt = [start](std::size_t i) { return static_cast<unsigned char>(start[i]); };
    // A zlib header of the usual window and its check bits. Those of smaller windows look like a line that
    // begins with "80=" or "HK".
    if (start.size() > 1 && byteAt(0) == 0x78 && (byteAt(0) * 256 + byteAt(1)) % 31 == 0)
        return Form::Zkvn;
    return Form::Vkvn;
}

} // namespace

FrameReader::FrameReader(Input& input, std::optional<Form> form) : m_input(input) {
    while (m_bytes.size() < 2 && readMore()) {
    }
    m_form = form.value_or(formOf(m_bytes));
    if (m_form != Form::Zkvn)
        return;
    m_inflater = std::make_unique<Inflater>();
    m_compressed.swap(m_bytes);
    m_inputEnded = false;
}

bool FrameReader::readMore() {
    if (m_inputEnded)
        return false;
    if (m_inflater != nullptr) {
        readCompressed();
        return !m_inputEnded;
    }
    const std::size_t size = m_bytes.size();
    m_bytes.resize(size + kBlock);
    const std::size_t count = m_input.read(m_bytes.data() + size, kBlock);
    m_bytes.resize(size + count);
    m_inputEnded = count == 0;
    return !m_inputEnded;
}

/// One step of inflating, which may bring no bytes.
void FrameReader::readCompressed() {
    if (m_inflater->isAtEnd()) {
        if (m_compressed.empty()) {
            m_compressed.resize(1);
            m_compressed.resize(m_input.read(m_compressed.data(), 1));
        }
        if (!m_compressed.empty())
            throw Fault(m_offset + held().size(), "the end of the input behind the end of the zlib stream",
                        byteText(m_compressed[0]));
        m_inputEnded = true;
        return;
    }
    const std::size_t size = m_bytes.size();
    m_bytes.resize(size + kBlock);
    std::string_view in(m_compressed);
    std::size_t count = 0;
    try {
        count = m_inflater->inflate(in, m_bytes.data() + size, kBlock);
    } catch (...) {
        m_bytes.resize(size);
        throw;
    }
    m_bytes.resize(size + count);
    m_compressed.erase(0, m_compressed.size() - in.size());
    if (count != 0 || m_inflater->isAtEnd())
        return;
    m_compressed.resize(kBlock);
    m_compressed.resize(m_input.read(m_compressed.data(), kBlock));
    // A live stream has no end of its own.
    m_inputEnded = m_compressed.empty();
}

bool FrameReader::fill(std::size_t size) {
    if (m_begin > kBlock && m_begin > m_bytes.size() / 2) {
        m_bytes.erase(0, m_begin);
        m_begin = 0;
    }
    while (held().size() < size)
        if (!readMore())
            return false;
    return true;
}

std::size_t FrameReader::frameLength() {
    if (!fill(KVNAPI::kKvnHeaderSize)) {
        const std::string_view part = held();
        if (part[0] == KVNAPI::KVN_START && (part.size() < 2 || part[1] == KVNAPI::kKvnMark))
            throw Fault(m_offset + part.size(), "the rest of the 6 bytes of a frame's header", kEndOfInput);
    }
    const std::string_view head = held();
    if (head[0] != KVNAPI::KVN_START)
        throw Fault(m_offset, "0x04, the start of a frame", byteText(head[0]));
    if (head[1] != KVNAPI::kKvnMark)
        throw Fault(m_offset + 1, "0x20, the second byte of a frame", byteText(head[1]));
    const std::size_t body = KVNAPI::frameBodyLength(head.data());
    if (body + KVNAPI::kKvnFrameExtra > kMaxFrame)
        throw Fault(m_offset + 2,
                    fmt::format("a body of at most {} bytes", kMaxFrame - KVNAPI::kKvnFrameExtra),
                    fmt::format("a length of {}", body));
    const std::size_t length = body + KVNAPI::kKvnFrameExtra;
    if (!fill(length))
        throw Fault(m_offset + held().size(),
                    fmt::format("{} more bytes of the frame", length - held().size()), kEndOfInput);
    if (const char end = held()[length - 1]; end != KVNAPI::ETX)
        throw Fault(m_offset + length - 1, "0x03, the end of the frame", byteText(end));
    return length;
}

std::size_t FrameReader::lineLength() {
    std::size_t searched = 0;
    for (;;) {
        const std::size_t end = held().find('\n', searched);
        if (end != std::string_view::npos)
            return end + 1;
        searched = held().size();
        if (searched >= kMaxFrame)
            throw Fault(m_offset, fmt::format("a line of at most {} bytes", kMaxFrame), "a longer one");
        if (!readMore()) {
            // The last line may lack its end.
            m_bytes += '\n';
            m_isEndAdded = true;
            return held().size();
        }
    }
}

bool FrameReader::next(Frame& frame) {
    if (!fill(1))
        return false;
    const std::size_t length = m_form == Form::Vkvn ? lineLength() : frameLength();
    frame = Frame();
    frame.bytes = held().substr(0, length);
    frame.offset = m_offset;
    frame.number = ++m_frames;
    frame.lacksEnd = m_isEndAdded;
    m_begin += length;
    m_offset += length;
    return true;
}

Surroundings FrameReader::around(std::uint64_t offset) const {
    std::string_view bytes(m_bytes);
    if (m_isEndAdded)
        bytes.remove_suffix(1);
    const std::uint64_t first = m_offset - m_begin;
    const auto place = static_cast<std::size_t>(std::clamp(offset, first, first + bytes.size()) - first);
    return {bytes.substr(0, place), bytes.substr(place)};
}

} // namespace tivra_wire
