#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>

#include <tp/Mutex.h>

namespace tivra_internal {

/// The names of the hubs' return codes: a few built in, the rest as a hub publishes them. @thread any
class RetCodeTable {
public:
    /// Starts with the names that are needed before any hub has delivered its enumeration.
    RetCodeTable();

    /// The name, or "Unknown code". The pointer stays valid as long as the table, also after a replacement.
    [[nodiscard]] const char* get(int code) const;
    void set(int code, std::string_view text);

private:
    mutable tp::Mutex m_mutex;
    /// Every text ever given, never erased, since callers keep the pointers.
    std::set<std::string, std::less<>> m_texts TP_GUARDED_BY(m_mutex);
    std::map<int, const char*> retCodeEnumMap TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
