#include "feed/OptionFile.h"

#include <cerrno>
#include <filesystem>
#include <fstream>

#include <feed/Error.h>

#include "feed/OptionSetter.h"

namespace tivra_internal {
namespace {

using tivra::Error;

constexpr std::size_t kLargestFile = 64 * 1024;

[[noreturn]] void refuseFile(const std::string& path, int systemError) {
    throw Error({Error::Code::InvalidOption, Error::Phase::Options,
                 "the options' file " + path + " can't be read", "see that it is a file, and its permissions",
                 "", 0, "", systemError});
}

[[nodiscard]] std::string contentOf(const std::string& path) {
    // A pipe would be waited for.
    std::error_code fault;
    if (!std::filesystem::is_regular_file(path, fault))
        refuseFile(path, fault.value());
    std::ifstream file(path, std::ios::binary);
    if (!file)
        refuseFile(path, errno);
    std::string content(kLargestFile + 1, '\0');
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    if (file.bad())
        refuseFile(path, errno);
    content.resize(static_cast<std::size_t>(file.gcount()));
    if (content.size() > kLargestFile)
        refuseOptionAt(path, "the file is too large", "64 KiB are enough for options");
    return content;
}

} // namespace

void readOptionFile(const std::string& path, OptionSetter& setter) {
    const std::string ending = std::filesystem::path(path).extension();
    if (ending == ".toml")
        readToml(contentOf(path), path, setter);
    else if (ending == ".json")
        readJson(contentOf(path), path, setter);
    else
        refuseOptionAt(path, "the name of the options' file ends with neither .toml nor .json",
                       "rename the file");
}

} // namespace tivra_internal
