#include "StatisticsServer.h"

#include "ExitCode.h"

namespace tivra_cat {

StatisticsServer::StatisticsServer(const std::string&, const SessionWatch&) {
    throw Failure(ExitCode::Usage, "--stats-listen: this tivra-cat was built without libmicrohttpd; "
                                   "--stats-file keeps a file for a collector");
}

StatisticsServer::~StatisticsServer() = default;

} // namespace tivra_cat
