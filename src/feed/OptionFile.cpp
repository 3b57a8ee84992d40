#include "feed/OptionFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include <feed/Error.h>

#include "feed/OpenFile.h"
#include "feed/OptionSetter.h"
#include "feed/OthersRead.h"

namespace tivra_internal {
namespace {

using tivra::Error;

constexpr std::size_t kLargestFile = 64 * 1024;

[[noreturn]] void refuseFile(const std::string& path, int systemError) {
    throw Error({Error::Code::InvalidOption, Error::Phase::Options,
                 "the options' file " + path + " can't be read", "see that it is a file, and its permissions",
                 "", 0, "", systemError});
}

[[nodiscard]] std::string contentOf(const OpenFile& file, const std::string& path) {
    struct stat status {};
    if (file.fd() < 0 || ::fstat(file.fd(), &status) != 0)
        refuseFile(path, errno);
    // A pipe would be waited for.
    if (!S_ISREG(status.st_mode))
        refuseFile(path, 0);
    std::string content(kLargestFile + 1, '\0');
    std::size_t length = 0;
    while (length < content.size()) {
        const ssize_t got = ::read(file.fd(), content.data() + length, content.size() - length);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            refuseFile(path, errno);
        if (got == 0)
            break;
        length += static_cast<std::size_t>(got);
    }
    content.resize(length);
    if (content.size() > kLargestFile)
        refuseOptionAt(path, "the file is too large", "64 KiB are enough for options");
    return content;
}

} // namespace

void readOptionFile(const std::string& path, OptionSetter& setter) {
    const std::string ending = std::filesystem::path(path).extension();
    if (ending != ".toml" && ending != ".json")
        refuseOptionAt(path, "the name of the options' file ends with neither .toml nor .json",
                       "rename the file");
    const OpenFile file(path, O_NONBLOCK);
    const std::string content = contentOf(file, path);
    if (ending == ".toml")
        readToml(content, path, setter);
    else
        readJson(content, path, setter);
    if (setter.hasPassword() && canOthersRead(file.fd()))
        refuseOptionAt(path, "there is a password in it, and others can read the file",
                       "chmod 600 ends that, or name a file of its own as password_file");
}

} // namespace tivra_internal
