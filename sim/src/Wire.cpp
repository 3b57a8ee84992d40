#include "tivra_sim/Wire.h"

#include "tivra_sim/Tokens.h"

#include <charconv>

namespace tivra_sim {

namespace {

constexpr char kFrameStart = '\x04';
constexpr char kFrameMarker = '\x20';
constexpr char kFrameEnd = '\x03';
constexpr std::size_t kHeaderSize = 6;

void appendHeader(std::string& out, std::uint32_t length) {
    out.push_back(kFrameStart);
    out.push_back(kFrameMarker);
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<char>(static_cast<unsigned char>((length >> shift) & 0xFFU)));
}

std::uint32_t readLength(std::string_view bytes) {
    std::uint32_t length = 0;
    for (const char byte : bytes.substr(2, 4))
        length = (length << 8) | static_cast<unsigned char>(byte);
    return length;
}

std::string hexByte(char byte) {
    static constexpr char kDigits[] = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    return {kDigits[value >> 4], kDigits[value & 0xF]};
}

} // namespace

void appendFrame(std::string& out, std::string_view body) {
    appendHeader(out, static_cast<std::uint32_t>(body.size()));
    out.append(body);
    out.push_back(kFrameEnd);
}

std::string encodeFrame(std::string_view body) {
    return encodeFrameWithLength(body, static_cast<std::uint32_t>(body.size()));
}

std::string encodeFrameWithLength(std::string_view body, std::uint32_t claimedLength) {
    std::string out;
    out.reserve(body.size() + FRAME_OVERHEAD);
    appendHeader(out, claimedLength);
    out.append(body);
    out.push_back(kFrameEnd);
    return out;
}

std::vector<Pair> splitPairs(std::string_view body) {
    std::vector<Pair> pairs;
    while (!body.empty()) {
        const std::size_t bar = body.find('|');
        const std::string_view field = body.substr(0, bar);
        body.remove_prefix(bar == std::string_view::npos ? body.size() : bar + 1);
        Pair pair;
        const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), pair.token);
        if (error != std::errc{} || end == field.data() + field.size() || *end != '=')
            continue;
        pair.value = field.substr(static_cast<std::size_t>(end - field.data()) + 1);
        pairs.push_back(pair);
    }
    return pairs;
}

std::string_view findValue(std::string_view body, int token, bool* found) {
    for (const Pair& pair : splitPairs(body)) {
        if (pair.token == token) {
            if (found != nullptr)
                *found = true;
            return pair.value;
        }
    }
    if (found != nullptr)
        *found = false;
    return {};
}

Record::Record(int source, std::string_view symbol) {
    add(token::PERMISSION, source);
    add(token::SOURCE, source);
    add(token::SYMBOL, symbol);
}

Record& Record::add(int token, std::string_view value) {
    if (!m_body.empty())
        m_body.push_back('|');
    m_body.append(std::to_string(token)).push_back('=');
    m_body.append(value);
    return *this;
}

Record& Record::add(int token, long long value) {
    return add(token, std::string_view(std::to_string(value)));
}

FrameReader::FrameReader(std::size_t maxBody) : m_maxBody(maxBody) {}

void FrameReader::push(std::string_view bytes) {
    m_buffer.erase(0, m_position);
    m_position = 0;
    m_buffer.append(bytes);
}

FrameReader::Result FrameReader::next(std::string_view& body) {
    const std::string_view bytes = std::string_view(m_buffer).substr(m_position);
    if (bytes.size() >= 1 && bytes[0] != kFrameStart) {
        m_error = "a frame starts with byte " + hexByte(bytes[0]) + " in place of 04";
        return Result::Invalid;
    }
    if (bytes.size() >= 2 && bytes[1] != kFrameMarker) {
        m_error = "a frame's second byte is " + hexByte(bytes[1]) + " in place of 20";
        return Result::Invalid;
    }
    if (bytes.size() < kHeaderSize)
        return Result::Incomplete;
    const std::size_t length = readLength(bytes);
    if (length > m_maxBody) {
        m_error = "a frame claims a body of " + std::to_string(length) + " bytes, more than " +
                  std::to_string(m_maxBody);
        return Result::Invalid;
    }
    if (bytes.size() < length + FRAME_OVERHEAD)
        return Result::Incomplete;
    if (bytes[kHeaderSize + length] != kFrameEnd) {
        m_error = "a frame ends with byte " + hexByte(bytes[kHeaderSize + length]) + " in place of 03";
        return Result::Invalid;
    }
    body = bytes.substr(kHeaderSize, length);
    m_position += length + FRAME_OVERHEAD;
    return Result::Frame;
}

void FrameReader::clear() {
    m_buffer.clear();
    m_position = 0;
    m_error.clear();
}

} // namespace tivra_sim
