#include "common/UserOptions.h"

#include "common/UsageError.h"

#include <string_view>

namespace tivra_tools {

void declareUser(CLI::App& app, const std::string& group, std::string& user, std::string& passwordFile) {
    app.add_option("-u,--user", user, "user name")->envname("TIVRA_USER")->group(group);
    app.add_option("--password-file", passwordFile,
                   "file whose first line is the password, - for standard input")
        ->group(group);
}

void checkUser(const std::string& user) {
    if (user.empty() || user.find_first_of("|\x03") != std::string::npos)
        throw UsageError("no user named, or one with \"|\" in it: give --user or TIVRA_USER");
}

void refusePasswordArgument(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--password" || argument.substr(0, 11) == "--password=")
            throw UsageError("a password on the command line is readable by everybody: use "
                             "TIVRA_PASSWORD, --password-file or the prompt");
    }
}

} // namespace tivra_tools
