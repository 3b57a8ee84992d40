#include "Output.h"

#include "ExitCode.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace tivra_wire {

Output::Output(const std::string& file, std::optional<int> level)
    : m_name(file == "-" ? "standard output" : file)
    , m_file(file == "-" ? stdout : std::fopen(file.c_str(), "wb"))
    , m_isCompressed(level.has_value()) {
    if (m_file == nullptr)
        fail();
    if (m_isCompressed && deflateInit(&m_stream, *level) != Z_OK)
        throw std::bad_alloc();
}

Output::~Output() {
    if (m_isCompressed)
        deflateEnd(&m_stream);
    if (m_file != nullptr && m_file != stdout)
        static_cast<void>(std::fclose(m_file));
}

void Output::fail() const {
    if (errno == EPIPE) // a reader that has seen enough is no news
        throw Failure(ExitCode::OutputFailed, "");
    throw Failure(ExitCode::OutputFailed, fmt::format("cannot write {}: {}", m_name, std::strerror(errno)));
}

void Output::writePlain(std::string_view bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), m_file) != bytes.size())
        fail();
}

void Output::deflate(std::string_view bytes, int flush) {
    char block[16384];
    m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    m_stream.avail_in = static_cast<uInt>(bytes.size());
    do {
        m_stream.next_out = reinterpret_cast<Bytef*>(block);
        m_stream.avail_out = sizeof block;
        static_cast<void>(::deflate(&m_stream, flush));
        writePlain({block, sizeof block - m_stream.avail_out});
    } while (m_stream.avail_out == 0);
}

void Output::write(std::string_view bytes) {
    if (m_isCompressed)
        deflate(bytes, Z_NO_FLUSH);
    else
        writePlain(bytes);
}

void Output::flush() {
    if (std::fflush(m_file) != 0)
        fail();
}

void Output::finish() {
    if (m_isCompressed)
        deflate({}, Z_FINISH);
    flush();
    // Some file systems tell only now that there was no room.
    if (std::FILE* const file = std::exchange(m_file, nullptr); file != stdout && std::fclose(file) != 0)
        fail();
}

} // namespace tivra_wire
