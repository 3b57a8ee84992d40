// What the group around a hub looks like: alone, aggregating or one of several, and which hub carries which
// source.
#include "hub/HubClient.h"

#include <tp/eprintf.h>

#include "config/HostTable.h"
#include "hub/ConnectionManagers.h"
#include "hub/HubSession.h"
#include "hub/MessageReading.h"
#include "hub/PortAnswer.h"
#include "hub/SplitPattern.h"
#include "kvnparse/Exchange.h"
#include "receive/SystemSource.h"

namespace tivra_internal {

namespace {

/// A lone hub's answer to the check is shorter than this.
constexpr int kMinGroupPairs = 5;
/// A source that has no hub of its own; nothing to warn of.
constexpr long kNoPortForSource = -46;

} // namespace

int HubClient::aggCheck() {
    return sendStartUpRequest(AGG_CHECK, "5026=%d|5022=GetPort|4=%d", AGG_CHECK, SYSTEM_SOURCE);
}

int HubClient::getSplit() {
    return sendStartUpRequest(GET_SPLIT, "5026=%d|5022=ListSplitExchanges", GET_SPLIT);
}

void HubClient::process_aggCheck(KVNAPI::Message& msg) {
    const PortAnswer answer(m_dicMetaMap, msg);
    if (!answer.isReadable("process_aggCheck"))
        return;
    if (const long code = answer.status.integer(); code != 0) {
        eprintf(EPF_WARN, "HubClient::process_aggCheck: rc=%ld (%s) from GetPort for src=%d", code,
                retCodeText(code), SYSTEM_SOURCE);
        return;
    }
    if (m_session.isCMconnection()) {
        // The manager's hubs tell their group by GetAllPorts; these are candidates for cross references.
        answer.forEachPort(msg, [this](const std::string&, uint16_t port) { m_session.setXRefPort(port); });
        m_known.m_aggChecked = true;
        return;
    }
    m_known.m_isAgg = true;
    m_otherHubs.clear();
    bool portSeen = false;
    const std::string ownAddress = getHubIpAddr();
    answer.forEachPort(msg, [&](const std::string& host, uint16_t port) {
        portSeen = true;
        if (!host.empty() && port == getHubPort() && host == ownAddress) {
            m_known.m_isAgg = false;
            return;
        }
        if (host.empty())
            return;
        m_otherHubs.push_back(HostTable::hostInfoOf(host, port));
        eprintf(EPF_DBUG, "HubClient::process_aggCheck: Adding (%s)", m_otherHubs.back().c_str());
    });
    m_known.m_isSingleInstanceHUB =
        !m_known.m_isAgg && msg.pairCount() > 0 && msg.pairCount() < kMinGroupPairs;
    const std::string response = describe(msg);
    eprintf(EPF_DBUG, "process_aggCheck: response=%s", response.c_str());
    if (m_known.m_isAgg && portSeen)
        suspendForUnknownAddress(response);
    else
        joinGroup();
    m_known.m_aggChecked = true;
}

// The hub lists members, and none of them is what was dialled.
void HubClient::suspendForUnknownAddress(const std::string& response) {
    static constexpr const char* kReason =
        "It appears client is using NAT to reach HUB, but did not properly configure NAT pair(s) to API.";
    eprintf(EPF_WARN,
            "HubClient::process_aggCheck: dialled %s:%d, not among the hosts and ports of the answer: %s",
            getDialledAddr().c_str(), getHubPort(), response.c_str());
    eprintf(EPF_WARN, "%s", kReason);
    m_known.m_isAgg = false;
    suspendClient(kReason);
}

void HubClient::joinGroup() {
    if (m_known.m_isAgg) {
        eprintf(EPF_INFO, "This client is connected to a AGG");
    } else if (m_known.m_isSingleInstanceHUB) {
        eprintf(EPF_INFO, "This client is connected to a single-instance HUB");
    } else {
        for (const std::string& other : m_otherHubs)
            if (m_options.host != nullptr)
                m_session.createHubForHost(other, *m_options.host, "process_aggCheck");
        eprintf(EPF_INFO, "This client is connected to a %zu-way HUB", m_otherHubs.size() + 1);
    }
}

int HubClient::getAllPorts() {
    return sendStartUpRequest(GET_ALLPORTS, "5026=%d|5022=GetAllPorts", GET_ALLPORTS);
}

void HubClient::process_allPorts(KVNAPI::Message& msg) {
    const PortAnswer answer(m_dicMetaMap, msg);
    if (!answer.isReadable("process_allPorts", false))
        return;
    m_known.m_haveAllPorts = true;
    if (const long code = answer.status.integer(); code != 0) {
        m_known.m_isSingleInstanceHUB = true;
        m_session.removeXRefPort(getHubPort());
        eprintf(EPF_WARN, "HubClient::process_allPorts: rc=%ld (%s) from GetAllPort ", code,
                retCodeText(code));
        return;
    }
    std::set<uint16_t> others;
    bool isMember = false;
    answer.forEachPort(msg, [&](const std::string&, uint16_t port) {
        if (port == getHubPort())
            isMember = true;
        else
            others.insert(port);
    });
    if (isMember || others.empty())
        m_session.removeXRefPort(getHubPort());
    if (others.empty()) {
        m_known.m_isSingleInstanceHUB = true;
        eprintf(EPF_INFO, "process_allPorts:CM connection success - portList is empty, SingleInstance HUB\n");
        return;
    }
    // A hub that serves no data port itself was only a door.
    if (!isMember)
        m_session.dropFirstHubLater(this);
    createHubsOfManager(others);
}

void HubClient::createHubsOfManager(const std::set<uint16_t>& ports) {
    ConnectionManagers& managers = m_session.getConnectionManagers();
    const std::string manager = managers.managerAddr();
    if (manager.empty() || m_options.host == nullptr) {
        eprintf(EPF_WARN, "HubClient::process_allPorts: no connection manager to ask for the other HUBs");
        return;
    }
    for (const uint16_t port : ports) {
        m_session.removeXRefPort(port);
        if (!managers.hubOfPort(port).empty()) {
            eprintf(EPF_WARN,
                    "process_allPorts:Port already exist in portHubMap, Ports should be different for HUB "
                    "types %d\n",
                    int{port});
            suspendClient("HUB already created, Ports should be different for HUB types ");
            return;
        }
        const std::string host = HostTable::hostInfoOf(manager, port);
        eprintf(EPF_INFO, "process_allPorts: hostString=%s\n", host.c_str());
        if (!m_session.createHubForHost(host, *m_options.host, "process_allPorts")) {
            eprintf(EPF_WARN,
                    "process_allPorts:HUB client alread created;  for this port shoud not happen.  "
                    "hostString=%s\n",
                    host.c_str());
            suspendClient("HUB already created - abort connection ");
            return;
        }
    }
}

bool HubClient::getPort() {
    if (!m_step.m_startedPorts) {
        m_step.m_src_in_progress = -1;
        m_step.m_startedPorts = true;
    }
    const SessionSources::PortCursor next = m_session.nextSourceWithoutHub(m_step.m_src_in_progress, this);
    m_step.m_src_in_progress = next.source;
    if (next.source < 0) {
        m_step.m_havePorts = true;
        eprintf(EPF_DBUG, "Finished finding ports for all user entitled sources not entitled on the box");
        return false;
    }
    sendStartUpRequest(GET_PORT, "5026=%d|5022=GetPort|4=%d", GET_PORT, next.source);
    if (next.last)
        m_step.m_havePorts = true;
    return true;
}

void HubClient::process_port(KVNAPI::Message& msg) {
    const int src = m_step.m_src_in_progress;
    if (src < 0)
        return;
    const PortAnswer answer(m_dicMetaMap, msg);
    if (!answer.isReadable("process_port"))
        return;
    if (const long code = answer.status.integer(); code != 0) {
        m_session.assignSource(src, this);
        if (code != kNoPortForSource)
            eprintf(EPF_WARN, "HubClient::process_port: rc=%ld (%s) from GetPort for src=%d", code,
                    retCodeText(code), src);
        return;
    }
    int portsAdded = 0;
    const std::string ownAddress = getHubIpAddr();
    answer.forEachPort(msg, [&](const std::string& host, uint16_t port) {
        if (!host.empty() && port == getHubPort() && host == ownAddress) {
            m_session.assignSource(src, this);
            ++portsAdded;
        } else if (assignToMember(src, memberOf(src, host, port))) {
            ++portsAdded;
        }
        eprintf(EPF_DBUG, "HubClient::process_port: src=%d; port=%d", src, port);
    });
    eprintf(EPF_DBUG, "HubClient::process_port: pairCnt=%d; src=%d, ports_added=%d", msg.pairCount(), src,
            portsAdded);
}

// Behind a connection manager the port alone names the member, since the manager chooses its host.
std::string HubClient::memberOf(int src, const std::string& host, uint16_t port) const {
    if (!m_session.isCMconnection())
        return HostTable::hostInfoOf(host, port);
    const ConnectionManagers& managers = m_session.getConnectionManagers();
    std::string addr = managers.hubOfPort(port);
    if (addr.empty()) {
        eprintf(EPF_WARN,
                "HubClient::process_port: port %d not found in the portHubMap! So assign to HubClient of "
                "different port",
                int{port});
        if (managers.firstHub(port, addr))
            eprintf(EPF_WARN, "HubClient::process_port:  changing the port for src=%d; new port=%d", src,
                    int{port});
    }
    return HostTable::hostInfoOf(addr, port);
}

bool HubClient::assignToMember(int src, const std::string& host) {
    switch (m_session.assignSourceToHost(src, host)) {
    case SessionSources::HubLookup::Found:
        return true;
    case SessionSources::HubLookup::NoHostConfig:
        eprintf(EPF_WARN, "HubClient::process_port: hostConfig(%s) not found!", host.c_str());
        return false;
    case SessionSources::HubLookup::NoClient:
        eprintf(EPF_WARN, "HubClient::process_port: hubClient not found for %s!", host.c_str());
        return false;
    }
    return false;
}

void HubClient::process_split(KVNAPI::Message& msg) {
    const MessageField status(m_dicMetaMap, msg, "ENUM.QUERY.STATUS");
    const MessageField source(m_dicMetaMap, msg, "ENUM.SRC.ID");
    const MessageField symbol(m_dicMetaMap, msg, "SYMBOL.TICKER");
    if (!status.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_split: ENUM.QUERY.STATUS not defined!");
    } else if (!source.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_split: ENUM.SRC.ID not defined!");
    } else if (!symbol.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_split: SYMBOL.TICKER not defined!");
    } else if (!status.isPresent()) {
        addSplitEntry(msg, source, symbol);
    } else if (const long code = status.integer(); code != 0) {
        eprintf(EPF_WARN, "ListSplitExchanges failed on %s:%d with return code = %ld: %s",
                getDialledAddr().c_str(), getHubPort(), code, retCodeText(code));
    } else {
        eprintf(EPF_INFO, "API Successfully processed split info for %s:%d", getDialledAddr().c_str(),
                getHubPort());
        m_known.split_processed = true;
    }
}

// The first source and the first symbol stand in the message's header, the further ones among its pairs. A
// symbol applies to the sources before it.
void HubClient::addSplitEntry(const KVNAPI::Message& msg, const MessageField& source,
                              const MessageField& symbol) {
    if (msg.exchange == nullptr) {
        eprintf(EPF_WARN, "HubClient::process_split: entry without ENUM.SRC.ID ignored");
        return;
    }
    std::set<int> sources;
    const auto addSource = [&](int64_t id) {
        if (id < INT32_MIN || id > INT32_MAX)
            return;
        sources.insert(static_cast<int>(id));
        m_session.addSplitExchange(static_cast<int>(id), this);
    };
    addSource(msg.exchange->id);
    bool symbolSeen = false;
    for (int i = 0; i < msg.pairCount(); ++i) {
        const KVNAPI::TVPair& pair = *msg.pair(i);
        if (source.isIn(pair)) {
            addSource(integerOf(pair));
        } else if (symbol.isIn(pair)) {
            if (!symbolSeen)
                processSplitSym(msg.symbol.view(), sources);
            symbolSeen = true;
            processSplitSym(pairText(pair), sources);
        }
    }
    if (!symbolSeen)
        processSplitSym(msg.symbol.view(), sources);
}

void HubClient::processSplitSym(std::string_view sym, const std::set<int>& sources) {
    const std::string pattern = splitPatternOf(sym);
    if (pattern.empty())
        return;
    for (const int source : sources)
        m_session.addSplitSymbol(source, pattern, this);
}

} // namespace tivra_internal
