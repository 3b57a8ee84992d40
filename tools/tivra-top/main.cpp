#include "EndpointWatch.h"
#include "ExitCode.h"
#include "FeedWatch.h"
#include "Options.h"
#include "Run.h"
#include "Terminal.h"

#include "common/LogFile.h"
#include "common/Password.h"
#include "common/ProgramMain.h"

#include <memory>

namespace {

const std::string kProgram = "tivra-top";

std::unique_ptr<tivra_top::Watch> makeWatch(const tivra_top::Options& options, const std::string& password,
                                            tivra_top::Signals& signals) {
    if (!options.endpoint.empty())
        return std::make_unique<tivra_top::EndpointWatch>(tivra_top::EndpointWatch::Endpoint{
            options.endpoint, options.endpointCa,
            options.endpointTokenFile.empty() ? std::string()
                                              : tivra_tools::readToken(options.endpointTokenFile)});
    const std::string logFile = tivra_tools::logFileName(options.logFile, kProgram);
    return std::make_unique<tivra_top::FeedWatch>(options, password, logFile, signals);
}

tivra_top::ExitCode runProgram(int argc, char** argv) {
    using namespace tivra_top;
    const std::optional<Options> options = readOptions(argc, argv);
    if (!options)
        return ExitCode::Ended;
    const bool hasScreen = !options->isOnce && options->serve.empty();
    if (hasScreen)
        Terminal::check();
    // Before the signals are held back, so that they end the prompt.
    const std::string password = options->endpoint.empty()
                                     ? tivra_tools::obtainPassword(options->user, options->passwordFile)
                                     : std::string();
    Signals signals;
    const std::unique_ptr<Watch> watch = makeWatch(*options, password, signals);
    const auto shown = hasScreen ? runScreen : options->isOnce ? runOnce : runPage;
    return shown(*options, *watch, signals);
}

} // namespace

int main(int argc, char** argv) {
    return tivra_tools::runMain("tivra-top", runProgram, argc, argv);
}
