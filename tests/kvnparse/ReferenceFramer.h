#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace kvnparse_test {

/// A framer written for clearness: it keeps the whole stream and works with positions in it. What the
/// library's framer does, in which order and with which texts, is judged against it.
class ReferenceFramer {
public:
    enum Format { TOKENS, LINES };

    /// What one pull gives: its result, and the frame (0) or the text (-1).
    struct Step {
        int result;
        std::string content;
        bool operator==(const Step&) const = default;
    };

    ReferenceFramer(Format format, std::size_t maxBufferSize) : m_format(format), m_max(maxBufferSize) {}

    void feed(std::string_view bytes) { m_stream.append(bytes); }
    [[nodiscard]] std::size_t held() const { return m_stream.size() - m_position; }

    [[nodiscard]] Step pull() {
        if (m_outOfStep)
            return search();
        const Verdict verdict = judge();
        if (verdict.kind == COMPLETE) {
            Step step{0, m_stream.substr(m_position, verdict.length)};
            m_position += verdict.length;
            return step;
        }
        if (verdict.kind == INCOMPLETE && held() < m_max)
            return {1, ""};
        m_outOfStep = true;
        if (verdict.kind == INCOMPLETE)
            return {-1, text("Block too large (max is %d).", static_cast<int>(m_max))};
        return {-1, verdict.reason};
    }

private:
    enum Kind { COMPLETE, INCOMPLETE, WRONG };
    struct Verdict {
        Kind kind;
        std::size_t length;
        std::string reason;
    };

    [[gnu::format(printf, 1, 2)]] static std::string text(const char* format, ...) {
        char line[128];
        va_list args;
        va_start(args, format);
        std::vsnprintf(line, sizeof line, format, args);
        va_end(args);
        return line;
    }

    [[nodiscard]] int signedByte(std::size_t offset) const {
        const int value = m_stream[m_position + offset] & 0xff;
        return value < 128 ? value : value - 256;
    }

    [[nodiscard]] Verdict judge() const {
        if (m_format == LINES) {
            const std::size_t newline = m_stream.find('\n', m_position);
            if (newline == std::string::npos)
                return {INCOMPLETE, 0, ""};
            return {COMPLETE, newline + 1 - m_position, ""};
        }
        if (held() < 6)
            return {INCOMPLETE, 0, ""};
        if (signedByte(0) != 4 || signedByte(1) != 32)
            return {WRONG, 0,
                    text("Invalid KVN header: %02x %02x", static_cast<unsigned>(signedByte(0)),
                         static_cast<unsigned>(signedByte(1)))};
        unsigned long body = 0;
        for (std::size_t i = 2; i < 6; ++i)
            body = body * 256 + static_cast<unsigned long>(signedByte(i) & 0xff);
        if (body >= 4294967289UL)
            return {WRONG, 0, text("Invalid KVN header size: %lu", body + 7 - 4294967296UL)};
        if (held() < body + 7)
            return {INCOMPLETE, 0, ""};
        if (signedByte(6 + body) != 3)
            return {WRONG, 0, text("Invalid ETX (%02x)", static_cast<unsigned>(signedByte(6 + body)))};
        return {COMPLETE, body + 7, ""};
    }

    Step search() {
        const std::size_t from = m_position;
        if (held() == 0)
            return {1, ""};
        while (held() > 0) {
            const Verdict verdict = judge();
            if (verdict.kind == COMPLETE) {
                m_outOfStep = false;
                return {-1, text("Skipping %zu bytes", m_position - from)};
            }
            if (verdict.kind == INCOMPLETE && held() < m_max)
                break;
            const std::size_t next =
                m_format == LINES ? m_stream.find('\n', m_position) : m_stream.find('\4', m_position + 1);
            m_position = next == std::string::npos ? m_stream.size() : next + (m_format == LINES ? 1 : 0);
        }
        if (m_position == from)
            return {1, ""};
        return {-1, text("Skipping %zu bytes (still searching)", m_position - from)};
    }

    Format m_format;
    std::size_t m_max;
    std::string m_stream;
    std::size_t m_position = 0;
    bool m_outOfStep = false;
};

} // namespace kvnparse_test
