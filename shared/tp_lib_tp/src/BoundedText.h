#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace tp {

/// Builds a text piece by piece in a buffer that somebody else owns. It always ends in a zero, and a piece
/// that doesn't fit leaves it as it was.
class BoundedText {
public:
    /// `size` counts the terminating zero and must be at least 1.
    BoundedText(char* buf, std::size_t size) noexcept : m_buf(buf), m_size(size) { m_buf[0] = '\0'; }

    /// @return false when the piece doesn't fit or can't be formatted
    __attribute__((format(printf, 2, 3))) bool append(const char* fmt, ...) noexcept {
        va_list args;
        va_start(args, fmt);
        const bool fits = vappend(fmt, args);
        va_end(args);
        return fits;
    }

    __attribute__((format(printf, 2, 0))) bool vappend(const char* fmt, va_list args) noexcept {
        const int written = std::vsnprintf(m_buf + m_length, room(), fmt, args);
        if (written < 0 || static_cast<std::size_t>(written) >= room()) {
            m_buf[m_length] = '\0';
            return false;
        }
        m_length += static_cast<std::size_t>(written);
        return true;
    }

    /// Like append(), but keeps as much of the piece as fits.
    __attribute__((format(printf, 2, 3))) void appendCut(const char* fmt, ...) noexcept {
        va_list args;
        va_start(args, fmt);
        vappendCut(fmt, args);
        va_end(args);
    }

    __attribute__((format(printf, 2, 0))) void vappendCut(const char* fmt, va_list args) noexcept {
        const int written = std::vsnprintf(m_buf + m_length, room(), fmt, args);
        if (written > 0)
            m_length +=
                static_cast<std::size_t>(written) < room() ? static_cast<std::size_t>(written) : room() - 1;
    }

    /// Makes use of bytes that were kept back at the end of the buffer.
    void addRoom(std::size_t bytes) noexcept { m_size += bytes; }

    void removeTrailingNewlines() noexcept {
        while (m_length > 0 && (m_buf[m_length - 1] == '\n' || m_buf[m_length - 1] == '\r'))
            m_buf[--m_length] = '\0';
    }

    /// Leaves the first bytes only.
    void cutTo(std::size_t length) noexcept {
        m_length = length;
        m_buf[m_length] = '\0';
    }
    /// Makes the text longer by bytes that the caller fills in; false when they don't fit.
    [[nodiscard]] bool growBy(std::size_t bytes) noexcept {
        if (bytes >= room())
            return false;
        cutTo(m_length + bytes);
        return true;
    }
    /// The text from a place on, to be rewritten.
    [[nodiscard]] char* tail(std::size_t from) noexcept { return m_buf + from; }

    /// Free bytes, the terminating zero's included.
    [[nodiscard]] std::size_t room() const noexcept { return m_size - m_length; }
    [[nodiscard]] std::size_t length() const noexcept { return m_length; }
    [[nodiscard]] const char* text() const noexcept { return m_buf; }

private:
    char* m_buf;
    std::size_t m_size;
    std::size_t m_length = 0;
};

/// A variable's address, as "%p" takes it.
template<class Type>
const void* address(const Type* variable) noexcept {
    return variable;
}

} // namespace tp
