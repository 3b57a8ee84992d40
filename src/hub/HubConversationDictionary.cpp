// The texts of the return codes, the administration data and the dictionary of a hub.
#include "hub/HubClient.h"

#include <algorithm>
#include <atomic>
#include <climits>

#include <event/SessionEvent.h>
#include <tp/eprintf.h>

#include "dictionary/DictionaryCache.h"
#include "hub/HubSession.h"
#include "hub/HubVersion.h"
#include "hub/MessageReading.h"

namespace tivra_internal {

namespace {

/// No more codes are taken from one download.
constexpr long kMaxEnumRows = 10'000;
/// Return codes that any hub has told since the process began.
std::atomic<int> enumValuesProcessed{0};

const char* yesNo(bool value) {
    return value ? "true" : "false";
}

/// Takes the texts of a dictionary row as far as the message has them; the rest of the row stays empty.
void fillRow(TmpToken& row, int number, const MessageField& name, const MessageField& type,
             const MessageField& size) {
    if (!name.isDefined()) {
        eprintf(EPF_WARN, "HubMasterClient::process_dic: KVN.TOKEN.NAME not defined!");
        return;
    }
    if (!name.isPresent()) {
        eprintf(EPF_WARN, "HubMasterClient::process_dic: KVN.TOKEN.NAME missing from message; kvnid=%d",
                number);
        return;
    }
    const std::string nameText = name.text();
    row.setTokenName(nameText.data(), nameText.size());

    const auto hasField = [](const MessageField& field, const char* word) {
        if (!field.isDefined())
            eprintf(EPF_WARN, "HubMasterClient::process_dic: %s not defined!", word);
        else if (!field.isPresent())
            eprintf(EPF_WARN, "HubMasterClient::process_dic: %s missing from message", word);
        return field.isPresent();
    };
    if (!hasField(type, "KVN.TOKEN.TYPE"))
        return;
    const std::string typeText = type.text();
    row.setKVNType(typeText.data(), typeText.size());
    if (hasField(size, "KVN.TOKEN.SIZE"))
        row.setTokenLength(static_cast<size_t>(std::max<int64_t>(size.integer(), 0)));
}

} // namespace

int HubClient::getEnum() {
    return sendStartUpRequest(GET_ENUM, "5026=%d|5022=ListEnumeration|5035=5001", GET_ENUM);
}

int HubClient::getAdmin() {
    return sendStartUpRequest(GET_ADMIN, "5026=%d|5022=ListAdministrationInfo", GET_ADMIN);
}

int HubClient::getDic() {
    return sendStartUpRequest(GET_DIC, "5026=%d|5022=ListInternalTokens", GET_DIC);
}

void HubClient::process_enum(KVNAPI::Message& msg) {
    const MessageField value(m_dicMetaMap, msg, "KVN.ENUM.VALUE");
    if (!value.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_enum: %s not defined!", "KVN.ENUM.VALUE");
        return;
    }
    if (value.isPresent()) {
        addReturnCode(value.integer(), msg);
        return;
    }
    const MessageField status(m_dicMetaMap, msg, "ENUM.QUERY.STATUS");
    if (!status.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_enum: ENUM.QUERY.STATUS not defined!");
        return;
    }
    if (!status.isPresent()) {
        eprintf(EPF_WARN,
                "HubClient::process_enum: neither ENUM.QUERY.STATUS nor KVN.TOKEN.NUM present in message");
        return;
    }
    noteAnswered(GET_ENUM);
    if (const long code = status.integer(); code != 0) {
        eprintf(EPF_CRIT, "API failed to download enum from Port %d - return code = %ld: %s", getHubPort(),
                code, retCodeText(code));
        suspendClient("API failed to download enum");
        return;
    }
    eprintf(EPF_INFO, "Return code ENUM download from HUB Sucessful from %s:%d; %d values processed",
            getDialledAddr().c_str(), getHubPort(), enumValuesProcessed.load());
    m_session.setHaveEnum();
}

void HubClient::addReturnCode(int64_t code, const KVNAPI::Message& msg) {
    const MessageField desc(m_dicMetaMap, msg, "KVN.ENUM.DESC");
    if (!desc.isDefined()) {
        eprintf(EPF_CRIT, "HubClient::process_enum: %s not defined!", "KVN.ENUM.DESC");
        suspendClient("Internal error: KVN.ENUM.DESC not defined");
        return;
    }
    if (!desc.isPresent()) {
        eprintf(EPF_WARN, "HubClient::process_enum: %s missing from message", "KVN.ENUM.DESC");
        return;
    }
    if (code < INT_MIN || code > INT_MAX || ++m_step.m_enumRows > kMaxEnumRows)
        return;
    const std::string text = loggable(desc.text());
    m_session.setRetCodeDesc(static_cast<int>(code), text.data(), static_cast<long>(text.size()));
    enumValuesProcessed.fetch_add(1, std::memory_order_relaxed);
}

bool HubClient::process_admin(KVNAPI::Message& msg) {
    const std::string address = getDialledAddr();
    const MessageField version(m_dicMetaMap, msg, "DIC.VERSION");
    if (!version.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_admin: DIC.VERSION not defined!");
        return true;
    }
    const bool goesOn = !version.isPresent() ? noDicVersion() : takeDicVersion(loggable(version.text()));

    const MessageField hubVersion(m_dicMetaMap, msg, "HUB.VERSION");
    if (!hubVersion.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_admin: HUB.VERSION not defined!");
        return goesOn;
    }
    if (hubVersion.isPresent())
        setHubVersion(hubVersion.text());
    else
        eprintf(EPF_WARN, "HUB.VERSION not present in ListAdministrationInfo response");

    DictionaryCache& cache = m_session.getDictionaryCache();
    if (cache.hasInitialDIC()) {
        eprintf(EPF_DBUG, "%s:%d: m_initialDIC=%s; m_useLocalMap=%s ", address.c_str(), getHubPort(), "true",
                yesNo(m_known.m_useLocalMap));
        if (cache.find(m_known.m_dicVersion).rows == nullptr && !m_known.m_useLocalMap) {
            m_known.m_haveDIC = false;
            m_known.m_dowloadDIC = true;
            m_step.m_haveAdmin = true;
            return goesOn;
        }
        eprintf(EPF_DBUG, "process_admin: %s:%d: calling loadDic", address.c_str(), getHubPort());
        loadDic();
    }
    m_step.m_haveAdmin = true;
    eprintf(EPF_DBUG, "%s:%d: m_dowloadDIC=%s ", address.c_str(), getHubPort(), yesNo(m_known.m_dowloadDIC));
    return goesOn;
}

bool HubClient::noDicVersion() {
    eprintf(EPF_WARN, "DIC.VERSION not present in ListAdministrationInfo response");
    return true;
}

// False when the dictionary has changed since the last connection: the session then starts all hubs again.
bool HubClient::takeDicVersion(const std::string& newVersion) {
    const std::string previous = std::exchange(m_known.m_dicVersion, newVersion);
    const std::string address = getDialledAddr();
    const bool isCMconnection = m_session.isCMconnection();
    eprintf(EPF_DBUG, "%s:%d: m_haveDIC=%d; prevDicVersion=%s; newDicVersion=%s; m_isCMconnection=%s ",
            address.c_str(), getHubPort(), m_known.m_haveDIC, previous.c_str(), newVersion.c_str(),
            yesNo(isCMconnection));
    if (m_known.m_haveDIC && previous != newVersion && !isCMconnection) {
        eprintf(EPF_INFO, "New DIC.VERSION (%s) does not match current (%s); new DIC must be downloaded",
                newVersion.c_str(), previous.c_str());
        m_session.startDicReload();
        return false;
    }
    eprintf(EPF_INFO, "DIC.VERSION: (%s) for %s:%d", newVersion.c_str(), address.c_str(), getHubPort());
    return true;
}

void HubClient::setHubVersion(const std::string& text) {
    const HubVersion version = parseHubVersion(text);
    m_hubMajorVersion.store(version.major, std::memory_order_relaxed);
    m_hubMinorVersion.store(version.minor, std::memory_order_relaxed);
    const std::string shown = loggable(text);
    if (version.major < 0 || version.minor < 0)
        eprintf(EPF_WARN, "HubClient::process_admin: HUB.VERSION value unknown format: %s", shown.c_str());
    else
        eprintf(EPF_INFO, "HUB.VERSION: %s", shown.c_str());
}

void HubClient::process_dic(KVNAPI::Message& msg) {
    m_known.m_dowloadDIC = false;
    DictionaryCache& cache = m_session.getDictionaryCache();
    if (!m_known.m_useLocalMap && !cache.claimVersion(m_known.m_dicVersion)) {
        m_known.m_useLocalMap = true;
        eprintf(EPF_INFO, "%s:%d: DIC version (%s) does not match first HUB client, so will use a local copy",
                getDialledAddr().c_str(), getHubPort(), m_known.m_dicVersion.c_str());
    }
    const MessageField number(m_dicMetaMap, msg, "KVN.TOKEN.NUM");
    if (!number.isPresent()) {
        endDicDownload(msg);
        return;
    }
    m_known.m_dic_tokens_processed += 1;
    const int64_t id = number.integer();
    if (id < INT_MIN || id > INT_MAX)
        return;
    const int kvnid = static_cast<int>(id);
    const MessageField name(m_dicMetaMap, msg, "KVN.TOKEN.NAME");
    const MessageField type(m_dicMetaMap, msg, "KVN.TOKEN.TYPE");
    const MessageField size(m_dicMetaMap, msg, "KVN.TOKEN.SIZE");
    const auto fill = [&](TmpToken& row) { fillRow(row, kvnid, name, type, size); };
    const TokenRows::Added added = m_known.m_useLocalMap ? tmpTokenMap.add(kvnid, fill)
                                                         : cache.addRow(m_known.m_dicVersion, kvnid, fill);
    if (added == TokenRows::Added::Duplicate)
        eprintf(EPF_DBUG, "HubClient::process_dic: skipping dup for kvnid %d", kvnid);
}

void HubClient::endDicDownload(const KVNAPI::Message& msg) {
    const MessageField status(m_dicMetaMap, msg, "ENUM.QUERY.STATUS");
    if (!status.isDefined()) {
        eprintf(EPF_WARN, "HubMasterClient::process_dic: ENUM.QUERY.STATUS not defined!");
        return;
    }
    if (!status.isPresent()) {
        eprintf(EPF_WARN,
                "HubClient::process_dic: neither ENUM.QUERY.STATUS nor KVN.TOKEN.NUM present in message");
        return;
    }
    noteAnswered(GET_DIC);
    if (const long code = status.integer(); code != 0) {
        eprintf(EPF_CRIT, "API failed to download DIC from Port %d - return code = %ld: %s", getHubPort(),
                code, retCodeText(code));
        suspendClient("API failed to download DIC");
        return;
    }
    const std::string address = getDialledAddr();
    eprintf(EPF_INFO, "DIC download from HUB Successful from %s:%d; %d tokens processed", address.c_str(),
            getHubPort(), m_known.m_dic_tokens_processed);
    DictionaryCache& cache = m_session.getDictionaryCache();
    cache.setInitialDIC();
    m_known.m_haveDIC = true;
    const DictionaryCache::Entry entry = m_known.m_useLocalMap
                                             ? DictionaryCache::Entry{&tmpTokenMap, tmpTokenMap.size()}
                                             : cache.find(m_known.m_dicVersion);
    eprintf(EPF_DBUG, "process_dic: %s:%d: calling loadDic; pTokenMap size = %zu; pTokenMap=%p",
            address.c_str(), getHubPort(), entry.size, static_cast<const void*>(entry.rows));
    loadDic();
    m_session.insertSessionEvent(tivra::SessionEvent::TIVRA_DIC_LOADED, m_known.m_dicVersion, 0, 0);
}

void HubClient::loadDic() {
    m_session.getDictionaryCache().loadDic(m_known.m_dicVersion, tmpTokenMap, m_dicMetaMap, getHubAddr());
}

} // namespace tivra_internal
