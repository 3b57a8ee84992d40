#pragma once

#include <atomic>
#include <cstddef>
#include <map>
#include <string>
#include <utility>

#include <tp/Mutex.h>

#include "LockOrder.h"
#include "dictionary/TokenRows.h"

namespace tivra_internal {

class MetaTokenMap;

/// The dictionary rows that the hubs of one session share, owned by the session and used by every hub thread:
/// the first hub to download brings its version in, later hubs of that version load without a download. Rows
/// of any other version stay with their hub.
class DictionaryCache {
public:
    /// @param session  named in log lines only
    explicit DictionaryCache(const void* session = nullptr) noexcept : m_session(session) {}
    DictionaryCache(const DictionaryCache&) = delete;
    DictionaryCache& operator=(const DictionaryCache&) = delete;

    /// Whether rows of this version belong here: true for the version that the cache holds or, while it is
    /// empty, from now on holds. False: the hub keeps its rows to itself.
    [[nodiscard]] bool claimVersion(const std::string& version) TP_EXCLUDES(dicVersionTokenMap_mutex);

    /// Adds a row of a claimed version; `fill` runs under the lock and must take no other one but the log's.
    template<class Fill>
    [[nodiscard]] TokenRows::Added addRow(const std::string& version, int number, Fill&& fill)
        TP_EXCLUDES(dicVersionTokenMap_mutex) {
        const tp::MutexLock lock(dicVersionTokenMap_mutex);
        return dicVersionTokenMap[version].add(number, std::forward<Fill>(fill));
    }

    /// The rows of a version as an identity for log lines (null when it isn't held), and their number.
    struct Entry {
        const TokenRows* rows = nullptr;
        std::size_t size = 0;
    };
    [[nodiscard]] Entry find(const std::string& version) const TP_EXCLUDES(dicVersionTokenMap_mutex);

    /// Turns the rows of a version into tokens of `dictionary`, from here or, when it isn't held here, from
    /// `local`. Tokens that the dictionary already has keep their definition. Returns the number of rows.
    int loadDic(const std::string& version, const TokenRows& local, MetaTokenMap& dictionary,
                const std::string& hub) const TP_EXCLUDES(dicVersionTokenMap_mutex);

    /// True once a hub has finished a download, until reset().
    [[nodiscard]] bool hasInitialDIC() const noexcept { return m_initialDIC.load(std::memory_order_acquire); }
    void setInitialDIC() noexcept { m_initialDIC.store(true, std::memory_order_release); }

    /// Forgets everything: the next hub downloads again. @thread master
    void reset() TP_EXCLUDES(dicVersionTokenMap_mutex);

private:
    const void* const m_session;
    std::atomic<bool> m_initialDIC{false};
    mutable tp::Mutex dicVersionTokenMap_mutex{kLockDictionaryCache};
    std::map<std::string, TokenRows> dicVersionTokenMap TP_GUARDED_BY(dicVersionTokenMap_mutex);
};

} // namespace tivra_internal
