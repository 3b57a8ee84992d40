#include "api/StandIns.h"

#include <memory>

#include <tp/Process.h>

#include "LockOrder.h"
#include "config/ConnectionConfigImpl.h"
#include "config/HandleAccess.h"
#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "config/SessionConfigImpl.h"

namespace tivra_internal {
namespace {

struct StandIns : tp::OfOneProcess {
    HandlePtr<tivra::SessionConfig> session =
        HandleAccess::make<tivra::SessionConfig>(std::make_unique<SessionConfigImpl>());
    HostTable hosts;
    HandlePtr<tivra::ConnectionConfig> connection =
        HandleAccess::make<tivra::ConnectionConfig>(std::make_unique<ConnectionConfigImpl>(hosts));
    HandlePtr<tivra::HostConfig> host = HandleAccess::make<tivra::HostConfig>(
        std::make_unique<HostConfigImpl>(std::string(), 0, connection.get(), 0));
};

struct Shared {
    tp::ProcessMutex mutex{kLockStandIns};
    StandIns* current TP_GUARDED_BY(mutex) = nullptr;
};

/// Those of this process. A child of a child has others, and leaves those that it inherits alone.
StandIns& standIns() {
    static auto* const shared = new Shared;
    const tp::MutexLock lock(shared->mutex);
    if (shared->current == nullptr || shared->current->process().isForeign())
        shared->current = new StandIns;
    return *shared->current;
}

} // namespace

tivra::SessionConfig& standInSessionConfig() {
    return *standIns().session;
}

tivra::ConnectionConfig& standInConnectionConfig() {
    return *standIns().connection;
}

tivra::HostConfig& standInHostConfig() {
    return *standIns().host;
}

} // namespace tivra_internal
