#include "HubModel.h"

#include <algorithm>

namespace tivra_sim {

namespace {

bool isHeaderToken(int token) {
    return token == token::PERMISSION || token == token::SOURCE || token == token::SYMBOL ||
           token == token::REFRESH || token == token::TAG || token == token::STATUS;
}

} // namespace

HubModel::HubModel(const HubConfig& config)
    : m_config(config), m_box(config.boxPermissions), m_users(config.users) {
    for (const char* symbol :
         {HEARTBEAT_SYMBOL, HUB_STATUS_SYMBOL, QUERY_ERROR_SYMBOL, JIT_SYMBOL, ENTITLEMENT_SYMBOL})
        findOrAdd(SYSTEM_SOURCE, symbol);
    for (const Symbol& symbol : config.symbols)
        findOrAdd(symbol.source, symbol.symbol).fields = symbol.fields;
}

const User* HubModel::findUser(std::string_view name) const {
    const auto user = std::find_if(m_users.begin(), m_users.end(),
                                   [name](const User& candidate) { return candidate.name == name; });
    return user == m_users.end() ? nullptr : &*user;
}

void HubModel::grant(int source) {
    m_box.insert(source);
    for (User& user : m_users)
        user.permissions.insert(source);
}

void HubModel::withdraw(int source) {
    for (User& user : m_users)
        user.permissions.erase(source);
}

void HubModel::grant(std::string_view user, int source) {
    for (User& candidate : m_users) {
        if (candidate.name == user)
            candidate.permissions.insert(source);
    }
}

void HubModel::withdraw(std::string_view user, int source) {
    for (User& candidate : m_users) {
        if (candidate.name == user)
            candidate.permissions.erase(source);
    }
}

SymbolEntry* HubModel::find(int source, std::string_view symbol) {
    const auto entry = m_symbols.find(std::pair(source, std::string(symbol)));
    return entry == m_symbols.end() ? nullptr : entry->second.get();
}

SymbolEntry& HubModel::findOrAdd(int source, std::string_view symbol) {
    std::unique_ptr<SymbolEntry>& entry = m_symbols[std::pair(source, std::string(symbol))];
    if (!entry) {
        entry = std::make_unique<SymbolEntry>();
        entry->source = source;
        entry->symbol = symbol;
        if (m_onNewSymbol)
            m_onNewSymbol(*entry);
    }
    return *entry;
}

std::vector<SymbolEntry*> HubModel::select(const std::function<bool(const SymbolEntry&)>& predicate) {
    std::vector<SymbolEntry*> selected;
    for (const auto& [key, entry] : m_symbols) {
        if (predicate(*entry))
            selected.push_back(entry.get());
    }
    return selected;
}

void HubModel::settle(SymbolEntry& entry) {
    std::array<const TapeEvent*, 3> events{entry.lastBid, entry.lastAsk, entry.lastTrade};
    std::sort(events.begin(), events.end(), [](const TapeEvent* left, const TapeEvent* right) {
        return (left ? left->sequence : 0) < (right ? right->sequence : 0);
    });
    for (const TapeEvent* event : events) {
        if (event != nullptr)
            store(entry, event->body());
    }
    entry.lastBid = entry.lastAsk = entry.lastTrade = nullptr;
}

void HubModel::note(SymbolEntry& entry, const TapeEvent& event) {
    ExchangeQuote* quote = event.exchange >= 'A' && event.exchange <= 'Z'
                               ? &entry.book[static_cast<std::size_t>(event.exchange - 'A')]
                               : nullptr;
    if (event.isTrade)
        entry.lastTrade = &event;
    if (event.hasBid) {
        entry.lastBid = &event;
        if (quote != nullptr)
            quote->bid = &event;
    }
    if (event.hasAsk) {
        entry.lastAsk = &event;
        if (quote != nullptr)
            quote->ask = &event;
    }
}

void HubModel::store(SymbolEntry& entry, std::string_view body) {
    for (const Pair& pair : splitPairs(body)) {
        if (isHeaderToken(pair.token))
            continue;
        if (pair.value.empty())
            entry.fields.erase(pair.token);
        else
            entry.fields[pair.token] = pair.value;
    }
}

std::string HubModel::image(SymbolEntry& entry, std::int64_t tag) {
    settle(entry);
    Record record;
    if (tag >= 0)
        record.add(token::TAG, static_cast<long long>(tag));
    record.add(token::PERMISSION, entry.source)
        .add(token::SOURCE, entry.source)
        .add(token::SYMBOL, entry.symbol);
    if (tag < 0)
        record.add(token::REFRESH, 1);
    for (const auto& [token, value] : entry.fields)
        record.add(token, value);
    return record.body();
}

bool matchesWildcard(std::string_view pattern, std::string_view text) {
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t star = std::string_view::npos;
    std::size_t resume = 0;
    while (t < text.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || (pattern[p] == text[t] && pattern[p] != '*'))) {
            ++p;
            ++t;
        } else if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

} // namespace tivra_sim
