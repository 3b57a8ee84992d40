#include "dictionary/DictionaryCache.h"

#include <memory>

#include <tp/eprintf.h>

#include "dictionary/MetaTokenMap.h"

namespace tivra_internal {
namespace {

/// The type words of a download that are none: a hub may send thousands of them, and one line names them.
class UnknownTypes {
public:
    void note(int number, const std::string& word) {
        if (++m_count > kShown)
            return;
        m_text += m_text.empty() ? "" : ", ";
        m_text += word + (word.empty() ? "(" : " (") + std::to_string(number) + ")";
    }
    void log() const {
        if (m_count != 0)
            eprintf(EPF_WARN, "MetaToken::setKVNType - invalid type: %s; %d rows in all", m_text.c_str(),
                    m_count);
    }

private:
    static constexpr int kShown = 3;
    int m_count = 0;
    std::string m_text;
};

} // namespace

bool DictionaryCache::claimVersion(const std::string& version) {
    const tp::MutexLock lock(dicVersionTokenMap_mutex);
    if (dicVersionTokenMap.empty()) {
        const TokenRows* const rows = &dicVersionTokenMap[version];
        eprintf(EPF_DBUG,
                "Saving to cached tokenmap (version=%s) pTokenMap=%p; m_session=%p; "
                "m_session->dicVersionTokenMap=%p",
                version.c_str(), static_cast<const void*>(rows), m_session,
                static_cast<const void*>(&dicVersionTokenMap));
        return true;
    }
    return dicVersionTokenMap.count(version) != 0;
}

DictionaryCache::Entry DictionaryCache::find(const std::string& version) const {
    const tp::MutexLock lock(dicVersionTokenMap_mutex);
    const auto entry = dicVersionTokenMap.find(version);
    if (entry == dicVersionTokenMap.end())
        return {};
    return {&entry->second, entry->second.size()};
}

int DictionaryCache::loadDic(const std::string& version, const TokenRows& local, MetaTokenMap& dictionary,
                             const std::string& hub) const {
    const tp::MutexLock lock(dicVersionTokenMap_mutex);
    const auto entry = dicVersionTokenMap.find(version);
    const TokenRows& rows = entry != dicVersionTokenMap.end() ? entry->second : local;
    eprintf(EPF_DBUG, "pTokenMap %p has %zu entries; m_session->dicVersionTokenMap=%p",
            static_cast<const void*>(&rows), rows.size(), static_cast<const void*>(&dicVersionTokenMap));

    int count = 0;
    UnknownTypes unknownTypes;
    for (const auto& [number, row] : rows) {
        auto token = std::make_unique<MetaToken>();
        token->setKVNToken(number);
        token->setTokenName(row.tokName.data(), static_cast<long>(row.tokName.size()));
        const bool isTypeKnown = token->setKVNType(row.tokType.data(), static_cast<long>(row.tokType.size()));
        token->setTokenLength(row.tokLen);
        if (!dictionary.addMetaToken(token))
            eprintf(EPF_DBUG, "HubClient::loadDic: deleted dup at m=%p for %d",
                    static_cast<const void*>(token.get()), number);
        else if (!isTypeKnown)
            unknownTypes.note(number, row.tokType);
        ++count;
    }
    unknownTypes.log();
    eprintf(EPF_INFO, "Loaded %d DIC entries for %s; version=%s", count, hub.c_str(), version.c_str());
    return count;
}

void DictionaryCache::reset() {
    m_initialDIC.store(false, std::memory_order_release);
    const tp::MutexLock lock(dicVersionTokenMap_mutex);
    for (auto& [version, rows] : dicVersionTokenMap) {
        eprintf(EPF_DBUG, "Clearing DIC/TokenMap for %s: contains %zu entries", version.c_str(), rows.size());
        rows.clear();
    }
    dicVersionTokenMap.clear();
}

} // namespace tivra_internal
