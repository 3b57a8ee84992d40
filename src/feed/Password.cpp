#include <feed/Password.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

#include <feed/Error.h>

namespace tivra {
namespace {

[[noreturn]] void refuse(std::string cause, std::string advice, int systemError) {
    throw Error({Error::Code::InvalidOption, Error::Phase::Options, std::move(cause), std::move(advice), "",
                 0, "", systemError});
}

} // namespace

Password Password::fromEnvironment(const char* name) {
    const char* const value = std::getenv(name);
    if (value == nullptr)
        refuse(std::string("the password's environment variable ") + name + " isn't set", "set it", 0);
    return Password(value);
}

Password Password::fromFile(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line))
        refuse("the password file " + path + " can't be read or is empty",
               "write the password into its first line", errno);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return Password(std::move(line));
}

} // namespace tivra
