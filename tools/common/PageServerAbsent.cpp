// Where the library for it was not found.
#include "common/PageServer.h"

#include "common/UsageError.h"

namespace tivra_tools {

PageServer::PageServer(const std::string&, const PageProtection&, Pages) {
    throw UsageError("--stats-listen: this program was built without libmicrohttpd");
}

PageServer::~PageServer() = default;

} // namespace tivra_tools
