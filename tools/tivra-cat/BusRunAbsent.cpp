#include "BusRun.h"

namespace tivra_cat {

ExitCode runFromBus(const Options&) {
    throw Failure(ExitCode::Usage, "--from: this tivra-cat was built without the client library of the bus: "
                                   "install libnats-dev and build it again");
}

} // namespace tivra_cat
