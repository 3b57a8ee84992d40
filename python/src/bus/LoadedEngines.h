#pragma once

#include <reader/SourceOpener.h>

namespace tivra_python {

/// What connects to engines. It is in an extension module of its own, which their client libraries are linked
/// to, since a machine that reads hubs alone needn't have them.
struct LoadedEngines {
    /// The name of the capsule that this module hands over in a struct like this.
    static constexpr const char* kCapsule = "tivra.engines";

    tivra_bus::SourceOpener (*openerOf)(const tivra::BusOptions& options);
};

} // namespace tivra_python
