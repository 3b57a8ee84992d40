#include "HiddenWord.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <random>
#include <stdexcept>

namespace {

constexpr std::size_t kPiece = 1 << 20;
/// What sanitizers reserve beside the memory is larger, and has no bytes of the process in it.
constexpr std::uintptr_t kLargestRegion = std::uintptr_t{4} << 30;

/// Memory of its own, which the search passes over: pieces of all other memory come through it.
class Window {
public:
    Window()
        : m_bytes(static_cast<char*>(
              ::mmap(nullptr, kPiece, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
        , m_file(::open("/proc/self/mem", O_RDONLY | O_CLOEXEC)) {
        if (m_bytes == MAP_FAILED || m_file < 0)
            throw std::runtime_error("the memory of this process can't be read");
    }
    ~Window() {
        ::munmap(m_bytes, kPiece);
        ::close(m_file);
    }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    [[nodiscard]] const char* bytes() const { return m_bytes; }
    [[nodiscard]] std::size_t read(std::uintptr_t from, std::uintptr_t to) {
        const ssize_t got =
            ::pread(m_file, m_bytes, std::min<std::size_t>(to - from, kPiece), static_cast<off_t>(from));
        return got < 0 ? 0 : static_cast<std::size_t>(got);
    }
    /// Where it ends, for an address within.
    [[nodiscard]] std::uintptr_t endOf(std::uintptr_t address) const {
        const auto begin = reinterpret_cast<std::uintptr_t>(m_bytes);
        return address >= begin && address < begin + kPiece ? begin + kPiece : 0;
    }
    [[nodiscard]] std::uintptr_t begin() const { return reinterpret_cast<std::uintptr_t>(m_bytes); }

private:
    char* m_bytes;
    int m_file;
};

} // namespace

HiddenWord::HiddenWord(std::size_t length) : m_length(length) {
    std::random_device chance;
    for (std::size_t i = 0; i < m_length; ++i)
        m_turned.at(i) = static_cast<unsigned char>(('a' + chance() % 26) ^ 0xFF);
}

void HiddenWord::writeTo(const std::string& path) const {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    for (std::size_t i = 0; i < m_length; ++i) {
        const char c = letter(i);
        if (::write(file, &c, 1) != 1)
            throw std::runtime_error("cannot write " + path);
    }
    ::close(file);
}

std::size_t HiddenWord::countIn(const char* bytes, std::size_t length) const {
    std::size_t count = 0;
    for (std::size_t at = 0; at + m_length <= length; ++at) {
        std::size_t i = 0;
        while (i < m_length && bytes[at + i] == letter(i))
            ++i;
        count += i == m_length ? 1 : 0;
    }
    return count;
}

std::size_t HiddenWord::countInMemory() const {
    Window window;
    std::size_t count = 0;
    std::ifstream regions("/proc/self/maps");
    for (std::string line; std::getline(regions, line);) {
        std::size_t dash = 0;
        std::uintptr_t at = std::stoull(line, &dash, 16);
        std::size_t blank = 0;
        const std::uintptr_t end = std::stoull(line.substr(dash + 1), &blank, 16);
        if (line.substr(dash + blank + 2, 2) != "rw" || end - at > kLargestRegion)
            continue;
        while (at < end) {
            if (const std::uintptr_t after = window.endOf(at); after != 0) {
                at = after;
                continue;
            }
            const std::uintptr_t limit = at < window.begin() ? std::min(end, window.begin()) : end;
            const std::size_t got = window.read(at, limit);
            count += countIn(window.bytes(), got);
            // Pieces overlap, but for the last one, so that no word is cut.
            at = got < kPiece || at + got >= limit ? (got == 0 ? end : at + got) : at + got - (m_length - 1);
        }
    }
    return count;
}
