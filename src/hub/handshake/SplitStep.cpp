#include "hub/handshake/Steps.h"

#include <cstdint>

#include <tp/eprintf.h>

#include "hub/handshake/HandshakeContext.h"
#include "kvnparse/Exchange.h"

namespace tivra_internal {

int SplitStep::ask() {
    return m_context.ask(GET_SPLIT, "5026=%d|5022=ListSplitExchanges", GET_SPLIT);
}

void SplitStep::take(const KVNAPI::Message& msg) {
    const MessageField status = m_context.field(msg, "ENUM.QUERY.STATUS");
    const MessageField source = m_context.field(msg, "ENUM.SRC.ID");
    const MessageField symbol = m_context.field(msg, "SYMBOL.TICKER");
    if (!status.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_split: ENUM.QUERY.STATUS not defined!");
    } else if (!source.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_split: ENUM.SRC.ID not defined!");
    } else if (!symbol.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_split: SYMBOL.TICKER not defined!");
    } else if (!status.isPresent()) {
        addEntry(msg, source, symbol);
    } else if (const long code = status.integer(); code != 0) {
        eprintf(EPF_WARN, "ListSplitExchanges failed on %s:%d with return code = %ld: %s",
                m_context.address.dialled().c_str(), m_context.address.port(), code,
                m_context.retCodeText(code));
    } else {
        eprintf(EPF_INFO, "API Successfully processed split info for %s:%d",
                m_context.address.dialled().c_str(), m_context.address.port());
        m_context.known.split_processed = true;
    }
}

// The first source and the first symbol stand in the message's header, the further ones among its pairs. A
// symbol applies to the sources before it.
void SplitStep::addEntry(const KVNAPI::Message& msg, const MessageField& source, const MessageField& symbol) {
    if (msg.exchange == nullptr) {
        eprintf(EPF_WARN, "HubClient::process_split: entry without ENUM.SRC.ID ignored");
        return;
    }
    std::set<int> sources;
    const auto addSource = [&](int64_t id) {
        if (id < INT32_MIN || id > INT32_MAX)
            return;
        sources.insert(static_cast<int>(id));
        m_context.sources.addSplitExchange(static_cast<int>(id), m_context.port.client());
    };
    addSource(msg.exchange->id);
    bool symbolSeen = false;
    for (int i = 0; i < msg.pairCount(); ++i) {
        const KVNAPI::TVPair& pair = *msg.pair(i);
        if (source.isIn(pair)) {
            addSource(integerOf(pair));
        } else if (symbol.isIn(pair)) {
            if (!symbolSeen)
                addSymbol(msg.symbol.view(), sources);
            symbolSeen = true;
            addSymbol(pairText(pair), sources);
        }
    }
    if (!symbolSeen)
        addSymbol(msg.symbol.view(), sources);
}

void SplitStep::addSymbol(std::string_view sym, const std::set<int>& sources) {
    const std::string pattern = splitPatternOf(sym);
    if (pattern.empty())
        return;
    for (const int source : sources)
        m_context.sources.addSplitSymbol(source, pattern, m_context.port.client());
}

std::string splitPatternOf(std::string_view symbol) {
    if (symbol.size() < 3) {
        eprintf(EPF_WARN, "HubClient::processSplitSym: invalid symlen (%zu) so regex ignored", symbol.size());
        return {};
    }
    symbol = symbol.substr(1, symbol.size() - 2);
    std::string pattern;
    pattern.reserve(symbol.size());
    for (std::size_t i = 0; i < symbol.size(); ++i) {
        if (symbol[i] == '\\' && i + 1 < symbol.size()) {
            pattern += symbol[i++];
            pattern += symbol[i];
        } else {
            pattern += symbol[i] == '~' ? '|' : symbol[i];
        }
    }
    return pattern;
}

} // namespace tivra_internal
