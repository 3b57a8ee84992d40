#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include <feed/Error.h>
#include <feed/Password.h>
#include <tp/wipe.h>

#include "feed/OpenFile.h"
#include "feed/OthersRead.h"

namespace tivra {
namespace {

/// No hub takes one of half that length.
constexpr std::size_t kLongestLine = 8192;

[[noreturn]] void refuse(std::string cause, std::string advice, int systemError) {
    throw Error({Error::Code::InvalidOption, Error::Phase::Options, std::move(cause), std::move(advice), "",
                 0, "", systemError});
}

/// Byte after byte into one place, since a stream would leave a copy in its buffer.
/// @return errno, 0 for success
int readLine(int fd, std::string& line) {
    while (line.size() < kLongestLine) {
        char c = '\0';
        const ssize_t got = ::read(fd, &c, 1);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return errno;
        if (got == 0 || c == '\n')
            break;
        line.push_back(c);
    }
    return 0;
}

} // namespace

Password Password::fromEnvironment(const char* name) {
    const char* const value = std::getenv(name);
    if (value == nullptr)
        refuse(std::string("the password's environment variable ") + name + " isn't set", "set it", 0);
    return Password(value);
}

Password Password::fromFile(const std::string& path) {
    const tivra_internal::OpenFile file(path);
    std::string line;
    const tp::WipedAtEnd wiped(line);
    line.reserve(kLongestLine);
    const int error = file.fd() < 0 ? errno : readLine(file.fd(), line);
    if (file.fd() >= 0 && tivra_internal::canOthersRead(file.fd()))
        refuse("others can read the password file " + path, "chmod 600 ends that", 0);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    if (error != 0 || line.empty())
        refuse("the password file " + path + " can't be read or is empty",
               "write the password into its first line", error);
    return Password(line);
}

} // namespace tivra
