#include "hub/handshake/Steps.h"

#include <algorithm>
#include <climits>
#include <utility>

#include <event/SessionEvent.h>
#include <tp/eprintf.h>

#include "dictionary/DictionaryCache.h"
#include "hub/handshake/HandshakeContext.h"

namespace tivra_internal {

namespace {

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
        row.setTokenLength(static_cast<std::size_t>(std::max<int64_t>(size.integer(), 0)));
}

} // namespace

int DictionaryStep::ask() {
    m_isFull = false;
    return m_context.ask(GET_DIC, "5026=%d|5022=ListInternalTokens", GET_DIC);
}

void DictionaryStep::take(const KVNAPI::Message& msg) {
    m_context.known.m_dowloadDIC = false;
    DictionaryCache& cache = m_context.dictionaries.getDictionaryCache();
    if (!m_context.known.m_useLocalMap && !cache.claimVersion(m_context.known.m_dicVersion)) {
        m_context.known.m_useLocalMap = true;
        eprintf(EPF_INFO, "%s:%d: DIC version (%s) does not match first HUB client, so will use a local copy",
                m_context.address.dialled().c_str(), m_context.address.port(),
                m_context.known.m_dicVersion.c_str());
    }
    const MessageField number = m_context.field(msg, "KVN.TOKEN.NUM");
    if (!number.isPresent()) {
        end(msg);
        return;
    }
    m_context.known.m_dic_tokens_processed += 1;
    const int64_t id = number.integer();
    if (id < INT_MIN || id > INT_MAX)
        return;
    const int kvnid = static_cast<int>(id);
    const MessageField name = m_context.field(msg, "KVN.TOKEN.NAME");
    const MessageField type = m_context.field(msg, "KVN.TOKEN.TYPE");
    const MessageField size = m_context.field(msg, "KVN.TOKEN.SIZE");
    const auto fill = [&](TmpToken& row) { fillRow(row, kvnid, name, type, size); };
    const TokenRows::Added added = m_context.known.m_useLocalMap
                                       ? tmpTokenMap.add(kvnid, fill)
                                       : cache.addRow(m_context.known.m_dicVersion, kvnid, fill);
    if (added == TokenRows::Added::Full && !std::exchange(m_isFull, true))
        eprintf(EPF_WARN, "%s: the dictionary has more than %zu rows; the others are ignored",
                m_context.address.shown().c_str(), TokenRows::kMaxRows);
    if (added == TokenRows::Added::Duplicate)
        eprintf(EPF_DBUG, "HubClient::process_dic: skipping dup for kvnid %d", kvnid);
}

void DictionaryStep::end(const KVNAPI::Message& msg) {
    const MessageField status = m_context.field(msg, "ENUM.QUERY.STATUS");
    if (!status.isDefined()) {
        eprintf(EPF_WARN, "HubMasterClient::process_dic: ENUM.QUERY.STATUS not defined!");
        return;
    }
    if (!status.isPresent()) {
        eprintf(EPF_WARN,
                "HubClient::process_dic: neither ENUM.QUERY.STATUS nor KVN.TOKEN.NUM present in message");
        return;
    }
    m_context.noteAnswered(GET_DIC);
    if (const long code = status.integer(); code != 0) {
        eprintf(EPF_CRIT, "API failed to download DIC from Port %d - return code = %ld: %s",
                m_context.address.port(), code, m_context.retCodeText(code));
        m_context.port.suspendClient("API failed to download DIC");
        return;
    }
    const std::string address = m_context.address.dialled();
    eprintf(EPF_INFO, "DIC download from HUB Successful from %s:%d; %d tokens processed", address.c_str(),
            m_context.address.port(), m_context.known.m_dic_tokens_processed);
    DictionaryCache& cache = m_context.dictionaries.getDictionaryCache();
    cache.setInitialDIC();
    m_context.known.m_haveDIC = true;
    const DictionaryCache::Entry entry = m_context.known.m_useLocalMap
                                             ? DictionaryCache::Entry{&tmpTokenMap, tmpTokenMap.size()}
                                             : cache.find(m_context.known.m_dicVersion);
    eprintf(EPF_DBUG, "process_dic: %s:%d: calling loadDic; pTokenMap size = %zu; pTokenMap=%p",
            address.c_str(), m_context.address.port(), entry.size, static_cast<const void*>(entry.rows));
    load();
    m_context.dictionaries.insertSessionEvent(tivra::SessionEvent::TIVRA_DIC_LOADED,
                                              m_context.known.m_dicVersion, 0, 0);
}

void DictionaryStep::load() {
    m_context.dictionaries.getDictionaryCache().loadDic(m_context.known.m_dicVersion, tmpTokenMap,
                                                        m_context.dictionary, m_context.address.shown());
}

// Or the hub's dictionary would stay incomplete.
void DictionaryStep::forget() {
    if (m_context.isOutstanding(GET_DIC) && !m_context.known.m_haveDIC)
        m_context.known.m_dowloadDIC = true;
}

} // namespace tivra_internal
