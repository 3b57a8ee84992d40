#include "captures/ReplayHub.h"

#include "captures/CaptureSource.h"
#include "captures/FileFault.h"

#include <capture/CaptureNote.h>

#include <memory>
#include <optional>

namespace tivra_python {

namespace {

tivra_sim::HubConfig configOf(const ReplayHub::Options& options) {
    const auto source = std::make_shared<CaptureSource>(options.path, std::nullopt);
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.port = options.port;
    config.playback.factor = options.factor;
    config.playback.startWhenSubscriptions = options.startWhen;
    config.playback.bodies = [source,
                              first = std::optional<std::int64_t>()](tivra_sim::TimedBody& body) mutable {
        SourceMessage message;
        do {
            if (!source->next(message))
                return false;
        } while (tivra_capture::isNote(message.body));
        first = first.value_or(message.received);
        body.milliseconds = (static_cast<double>(message.received) - static_cast<double>(*first)) / 1e6;
        body.body = message.body;
        return true;
    };
    return config;
}

} // namespace

ReplayHub::ReplayHub(const Options& options) : m_hub(configOf(options)) {
    m_hub.start();
}

} // namespace tivra_python
