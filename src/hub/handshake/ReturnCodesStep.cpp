#include "hub/handshake/Steps.h"

#include <atomic>
#include <climits>

#include <tp/eprintf.h>

#include "hub/handshake/HandshakeContext.h"

namespace tivra_internal {

namespace {

/// No more codes are taken from one download.
constexpr long kMaxEnumRows = 10'000;
/// Return codes that any hub has sent since the process began.
std::atomic<int> enumValuesProcessed{0};

} // namespace

int ReturnCodesStep::ask() {
    return m_context.ask(GET_ENUM, "5026=%d|5022=ListEnumeration|5035=5001", GET_ENUM);
}

void ReturnCodesStep::take(const KVNAPI::Message& msg) {
    const MessageField value = m_context.field(msg, "KVN.ENUM.VALUE");
    if (!value.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_enum: %s not defined!", "KVN.ENUM.VALUE");
        return;
    }
    if (value.isPresent()) {
        addReturnCode(value.integer(), msg);
        return;
    }
    const MessageField status = m_context.field(msg, "ENUM.QUERY.STATUS");
    if (!status.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_enum: ENUM.QUERY.STATUS not defined!");
        return;
    }
    if (!status.isPresent()) {
        eprintf(EPF_WARN,
                "HubClient::process_enum: neither ENUM.QUERY.STATUS nor KVN.TOKEN.NUM present in message");
        return;
    }
    m_context.noteAnswered(GET_ENUM);
    if (const long code = status.integer(); code != 0) {
        eprintf(EPF_CRIT, "API failed to download enum from Port %d - return code = %ld: %s",
                m_context.address.port(), code, m_context.retCodeText(code));
        m_context.port.suspendClient("API failed to download enum");
        return;
    }
    eprintf(EPF_INFO, "Return code ENUM download from HUB Sucessful from %s:%d; %d values processed",
            m_context.address.dialled().c_str(), m_context.address.port(), enumValuesProcessed.load());
    m_context.dictionaries.setHaveEnum();
}

void ReturnCodesStep::addReturnCode(int64_t code, const KVNAPI::Message& msg) {
    const MessageField desc = m_context.field(msg, "KVN.ENUM.DESC");
    if (!desc.isDefined()) {
        eprintf(EPF_CRIT, "HubClient::process_enum: %s not defined!", "KVN.ENUM.DESC");
        m_context.port.suspendClient("Internal error: KVN.ENUM.DESC not defined");
        return;
    }
    if (!desc.isPresent()) {
        eprintf(EPF_WARN, "HubClient::process_enum: %s missing from message", "KVN.ENUM.DESC");
        return;
    }
    if (code < INT_MIN || code > INT_MAX)
        return;
    if (++m_context.state.m_enumRows > kMaxEnumRows) {
        if (m_context.state.m_enumRows == kMaxEnumRows + 1)
            eprintf(EPF_WARN, "%s: the hub lists more than %ld return codes; the others are ignored",
                    m_context.address.shown().c_str(), kMaxEnumRows);
        return;
    }
    const std::string text = loggable(desc.text());
    m_context.dictionaries.setRetCodeDesc(static_cast<int>(code), text.data(),
                                          static_cast<long>(text.size()));
    enumValuesProcessed.fetch_add(1, std::memory_order_relaxed);
}

} // namespace tivra_internal
