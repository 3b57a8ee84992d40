#include "BusRun.h"
#include "ExitCode.h"
#include "Options.h"
#include "Run.h"

#include "common/LogFile.h"
#include "common/Password.h"
#include "common/ProgramMain.h"

namespace {

const std::string kProgram = "tivra-cat";

tivra_cat::ExitCode runProgram(int argc, char** argv) {
    using namespace tivra_cat;
    const std::optional<Options> options = readOptions(argc, argv);
    if (!options)
        return ExitCode::Ended;
    if (!options->from.empty())
        return runFromBus(*options);
    const std::string logFile = tivra_tools::logFileName(options->logFile, kProgram);
    const std::string password = tivra_tools::obtainPassword(options->user, options->passwordFile);
    Run run(*options, logFile);
    return run.execute(password);
}

} // namespace

int main(int argc, char** argv) {
    return tivra_tools::runMain("tivra-cat", runProgram, argc, argv);
}
