#include "session/RetCodeTable.h"

#include <cstddef>

#include <tp/eprintf.h>

#include "receive/LibraryTags.h"

namespace tivra_internal {
namespace {

struct RetCodeName {
    int code;
    const char* name;
};

constexpr RetCodeName kBootStrapEnum[] = {
    {-33, "ERR.PARAM.BOUNDARY"},
    {-24, "ERR.EXIST.TOKEN"},
    {-10, "ERR_MC_LOGIN_NO_MUL_ENTITLED"},
    {-9, "ERR_MC_LOGIN_INSTANCE"},
    {-8, "ERR_MC_LOGIN_HUB"},
    {-7, "ERR_MC_LOGIN_IP"},
    {-6, "ERR.AUTH.LOGIN.COUNT"},
    {-5, "ERR.AUTH.LOGIN"},
    {-4, "ERR_DENY_LOGIN"},
    {-225, "ERR_ALLXREF_NOT_CONNECTED"},
    {kStatusConnectionLost, "Connection lost before the answer"},
};

// What a hub may make the process remember: far above any real enumeration, and no more.
constexpr std::size_t kMaxTexts = 10000;
constexpr std::size_t kMaxTextLength = 4096;

} // namespace

RetCodeTable::RetCodeTable() {
    for (const RetCodeName& row : kBootStrapEnum)
        set(row.code, row.name);
}

const char* RetCodeTable::get(int code) const {
    tp::MutexLock lock(m_mutex);
    const auto found = retCodeEnumMap.find(code);
    return found == retCodeEnumMap.end() ? "Unknown code" : found->second;
}

void RetCodeTable::set(int code, std::string_view text) {
    text = text.substr(0, kMaxTextLength);
    tp::MutexLock lock(m_mutex);
    auto stored = m_texts.find(text);
    if (stored == m_texts.end()) {
        if (m_texts.size() >= kMaxTexts) {
            eprintf(EPF_WARN, "Too many return code texts; code %d keeps its name", code);
            return;
        }
        stored = m_texts.emplace(text).first;
    }
    retCodeEnumMap[code] = stored->c_str();
}

} // namespace tivra_internal
