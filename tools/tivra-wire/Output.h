#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <zlib.h>

namespace tivra_wire {

/// A file or standard output, and on the way there perhaps a zlib stream. Throws Failure with
/// ExitCode::OutputFailed, without a text where nobody reads any more.
class Output {
public:
    /// With a level the bytes are compressed.
    Output(const std::string& file, std::optional<int> level);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view bytes);
    /// Hands on what waits, but for what is still in the zlib stream.
    void flush();
    /// Ends the zlib stream, writes what waits and closes the file. The last call.
    void finish();

private:
    void writePlain(std::string_view bytes);
    void deflate(std::string_view bytes, int flush);
    [[noreturn]] void fail() const;

    const std::string m_name;
    std::FILE* m_file;
    bool m_isCompressed;
    z_stream m_stream{};
};

} // namespace tivra_wire
