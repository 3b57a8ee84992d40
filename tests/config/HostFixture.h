#pragma once

#include <memory>

#include "config/ConnectionConfigImpl.h"
#include "config/HandleAccess.h"
#include "config/HostConfigImpl.h"
#include "config/HostTable.h"

/// A host table and the connection settings over it, as a session has them.
struct HostFixture {
    tivra_internal::HostTable table;
    tivra_internal::HandlePtr<tivra::ConnectionConfig> handle =
        tivra_internal::HandleAccess::make<tivra::ConnectionConfig>(
            std::make_unique<tivra_internal::ConnectionConfigImpl>(table));
    tivra_internal::ConnectionConfigImpl& connections = tivra_internal::HandleAccess::impl(*handle);

    tivra_internal::HostConfigImpl& host(const std::string& hostInfo) {
        return tivra_internal::HandleAccess::impl(handle->getHostConfig(hostInfo));
    }
};
