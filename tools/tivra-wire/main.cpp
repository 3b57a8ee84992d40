#include "ExitCode.h"
#include "Options.h"
#include "Run.h"

#include "common/ProgramMain.h"

namespace {

tivra_wire::ExitCode runProgram(int argc, char** argv) {
    using namespace tivra_wire;
    const std::optional<Options> options = readOptions(argc, argv);
    return options ? run(*options) : ExitCode::Ended;
}

} // namespace

int main(int argc, char** argv) {
    return tivra_tools::runMain("tivra-wire", runProgram, argc, argv);
}
