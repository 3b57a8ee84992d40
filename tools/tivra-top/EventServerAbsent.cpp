#include "EventServer.h"

#include "ExitCode.h"

namespace tivra_top {

EventServer::EventServer(const std::string&) {
    throw Failure(ExitCode::Usage, "--serve: this tivra-top was built without libmicrohttpd");
}

EventServer::~EventServer() = default;

void EventServer::publish(Picture) {}

std::uint64_t EventServer::viewers() const {
    return 0;
}

std::uint64_t EventServer::dropped() const {
    return 0;
}

} // namespace tivra_top
