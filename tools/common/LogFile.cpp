#include "common/LogFile.h"

#include "common/UsageError.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace tivra_tools {

namespace {

/// The library keeps that much of a log file's name, date not counted.
constexpr std::size_t MAX_NAME = 63;

std::string stateDirectory() {
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/')
        return fmt::format("{}/tivra", state);
    if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/')
        return fmt::format("{}/.local/state/tivra", home);
    return {};
}

bool canWriteIn(const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    return !error && access(directory.c_str(), W_OK | X_OK) == 0;
}

/// A directory of this user alone below /tmp; anything there that somebody else made is refused.
std::string privateTemporaryDirectory() {
    const std::string directory = fmt::format("/tmp/tivra-{}", getuid());
    if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST)
        return {};
    struct stat status {};
    const bool isOurs = lstat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
                        status.st_uid == getuid() && (status.st_mode & 0022) == 0;
    return isOurs ? directory : std::string();
}

} // namespace

std::string logFileName(const std::string& wanted, const std::string& program) {
    if (!wanted.empty()) {
        if (wanted.size() > MAX_NAME)
            throw UsageError(
                fmt::format("the log file's name \"{}\" is longer than {} characters", wanted, MAX_NAME));
        return wanted;
    }
    const std::string state = stateDirectory();
    std::string name = fmt::format("{}/{}.log", state, program);
    if (!state.empty() && name.size() <= MAX_NAME && canWriteIn(state))
        return name;
    const std::string temporary = privateTemporaryDirectory();
    if (temporary.empty())
        throw UsageError("no directory for the log file: name one with --log-file");
    return fmt::format("{}/{}.log", temporary, program);
}

std::string existingLogFile(const std::string& baseName) {
    const std::filesystem::path base(baseName);
    const std::filesystem::path folder = base.has_parent_path() ? base.parent_path() : ".";
    const std::string begin = base.filename().string() + ".";
    std::string latest = baseName;
    std::filesystem::file_time_type latestTime = std::filesystem::file_time_type::min();
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::filesystem::file_time_type time = entry.last_write_time(error);
        if (error || time < latestTime ||
            entry.path().filename().string().compare(0, begin.size(), begin) != 0)
            continue;
        latest = base.has_parent_path() ? entry.path().string() : entry.path().filename().string();
        latestTime = time;
    }
    return latest;
}

} // namespace tivra_tools
