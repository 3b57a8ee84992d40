#include "reader/SourceOpener.h"

#include "bus/BusError.h"

namespace tivra_bus {

EngineOptions engineOptionsOf(const tivra::BusOptions& options) {
    return {options.url,    options.name, options.credentialsFile, options.caFile, options.certificateFile,
            options.keyFile};
}

SourceOpener openerOf(const tivra::BusOptions& options) {
    using std::chrono::milliseconds;
    if (options.certificateFile.empty() != options.keyFile.empty())
        throw BusError("a certificate and its key go together: give both files or none");
    if (options.answerTimeout < milliseconds(100) || options.answerTimeout > std::chrono::minutes(10))
        throw BusError("answerTimeout has to be 100 ms to 10 minutes");
    return options.url.starts_with("kafka://") ? kafkaOpener(options) : natsOpener(options);
}

} // namespace tivra_bus
