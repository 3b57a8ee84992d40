#include "hub/handshake/Steps.h"

#include <string>

#include <session/HostConfig.h>
#include <tp/eprintf.h>

#include "config/HostConfigImpl.h"
#include "hub/ConflationChoice.h"
#include "hub/handshake/HandshakeContext.h"

namespace tivra_internal {

namespace {

long setting(const HostConfigImpl* hostConfig, tivra::HostConfig::Parameters parameter, long defaultValue) {
    return hostConfig != nullptr ? hostConfig->getLong(parameter, defaultValue) : defaultValue;
}

} // namespace

int ConflationStep::askInterval() {
    const long interval = setting(m_context.options.host, tivra::HostConfig::CONFLATION_INTERVAL_LONG,
                                  kDefaultConflationInterval);
    noteIgnoredInterval(
        setting(m_context.options.host, tivra::HostConfig::CONFLATION_TYPE_LONG, kConflationTypeTradeSafe),
        interval);
    // The interval goes out all the same: it is the hub that ignores it.
    return m_context.ask(SET_CONFLATION_INTERVAL, "5026=%d|5022=SetConflationInterval|2029=%ld",
                         SET_CONFLATION_INTERVAL, interval);
}

void ConflationStep::takeInterval() {
    m_context.state.m_conflationIntervalSet = true;
}

int ConflationStep::askType(HubVersion version) {
    const long type =
        setting(m_context.options.host, tivra::HostConfig::CONFLATION_TYPE_LONG, kConflationTypeTradeSafe);
    eprintf(EPF_INFO, "API set ConflationType to %ld", type);
    const ConflationChoice choice = chooseConflation(
        type,
        setting(m_context.options.host, tivra::HostConfig::JIT_CONFLATION_THRESHOLD_PERCENT_LONG,
                kDefaultJitThreshold),
        version);
    std::string suffix;
    if (choice.isJit) {
        suffix = "|3683=" + std::to_string(choice.threshold);
        eprintf(EPF_INFO, "JIT or JIT intervalized requested. Turning on ReportApiStats messages");
        m_context.port.setJit(static_cast<int>(choice.threshold));
    }
    return m_context.ask(SET_CONFLATION_TYPE, "5026=%d|5022=SetConflationType|2035=%ld%s",
                         SET_CONFLATION_TYPE, choice.type, suffix.c_str());
}

void ConflationStep::takeType(const KVNAPI::Message& msg) {
    // First of all, so that a failure never repeats the request.
    m_context.state.m_conflationTypeSet = true;
    const MessageField status = m_context.field(msg, "ENUM.QUERY.STATUS");
    const std::string address = m_context.address.dialled();
    if (!status.isDefined())
        eprintf(EPF_CRIT, "HubClient::process_port: ENUM.QUERY.STATUS not defined!");
    else if (!status.isPresent())
        eprintf(EPF_WARN, "HubClient::process_conflation_type: ENUM.QUERY.STATUS not present for %s:%d",
                address.c_str(), m_context.address.port());
    else if (const long code = status.integer(); code != 0)
        eprintf(EPF_WARN,
                "HubClient::process_conflation_type: rc=%ld (%s) from SetConflationType for %s:%d; therefore "
                "will use default trade-safe conflation",
                code, m_context.retCodeText(code), address.c_str(), m_context.address.port());
}

} // namespace tivra_internal
