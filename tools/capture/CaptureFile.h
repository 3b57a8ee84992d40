#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tivra_capture {

/// An open file of bytes whose failures are CaptureErrors that name it. One thread at a time.
class CaptureFile {
public:
    enum class Mode { Read, Replace };

    CaptureFile(std::string path, Mode mode);
    ~CaptureFile();
    CaptureFile(const CaptureFile&) = delete;
    CaptureFile& operator=(const CaptureFile&) = delete;

    void write(std::string_view bytes);
    /// Closes it and throws when that tells of a failed write.
    void close();

    /// Up to `count` bytes from `offset`; fewer only where the file ends.
    [[nodiscard]] std::string read(std::uint64_t offset, std::size_t count) const;
    [[nodiscard]] std::uint64_t size() const;

    /// Throws a CaptureError about this file.
    [[noreturn]] void fail(const std::string& what) const;

private:
    [[noreturn]] void failWithErrno(const char* attempted) const;

    const std::string m_path;
    int m_fd = -1;
};

} // namespace tivra_capture
