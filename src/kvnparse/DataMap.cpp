#include "kvnparse/DataMap.h"

#include "kvnparse/NumericText.h"

#include <tp/eprintf.h>
#include <tp/te_error.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>

namespace KVNAPI {

namespace {

constexpr int kQueryTag = 5026;

tp::chash_iter startOf(const tp::chash_root& root) noexcept {
    tp::chash_iter iter;
    tp::chash_iter_init(&iter, &root);
    return iter;
}

template<class Record>
Record* nextOf(tp::chash_iter& iter) noexcept {
    tp::chash_node* const node = tp::chash_iter_next(&iter);
    return node != nullptr ? tp::chash_entry(node, &Record::node) : nullptr;
}

/// Deletes what an index holds, and then its buckets.
template<class Record>
void clearRoot(tp::chash_root& root) {
    tp::chash_iter iter = startOf(root);
    Record* record = nextOf<Record>(iter);
    while (record != nullptr) {
        // The node goes with its record.
        Record* const gone = record;
        record = nextOf<Record>(iter);
        delete gone;
    }
    tp::chash_free(&root);
}

/// A digit of any base up to 36, or -1.
int digitValue(char c) noexcept {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z')
        return c - 'A' + 10;
    return -1;
}

std::optional<int> legacyExchangeId(const char* text) noexcept {
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
        text += 2;
    const int high = digitValue(text[0]);
    if (high < 0)
        return std::nullopt;
    const int low = digitValue(text[1]);
    if (low < 0)
        return std::nullopt;
    const int market = high * 16 + low;
    if (market > 127)
        return std::nullopt;
    if (text[2] == '\0')
        return market;
    if (text[2] >= 'a' && text[2] <= 'z' && text[3] == '\0')
        return market * 32 + (text[2] - 'a' + 1);
    return std::nullopt;
}

} // namespace

DataMap::DataMap() {
    init();
}

DataMap::~DataMap() {
    del();
}

void DataMap::init() {
    tp::MutexLock lock(m_mutex);
    m_maxSerialId = -1;
    for (tp::chash_root* root : {&tokenRoot_, &nameRoot_, &exchangeRoot_})
        if (tp::chash_init(root) != 0)
            throw std::bad_alloc();
}

void DataMap::del() {
    tp::MutexLock lock(m_mutex);
    m_generation.fetch_add(1, std::memory_order_relaxed);
    clearRoot<Token>(tokenRoot_);
    clearRoot<nameref>(nameRoot_);
    clearRoot<Exchange>(exchangeRoot_);
}

unsigned long DataMap::nameHash(std::string_view name) noexcept {
    unsigned long hash = 5381;
    for (const char c : name)
        hash = hash * 33 + static_cast<unsigned long>(static_cast<long>(static_cast<signed char>(c)));
    return hash;
}

DataMap::nameref* DataMap::findName(std::string_view name) const noexcept {
    return tp::chash_find(&nameRoot_, nameHash(name), &nameref::node,
                          [name](const nameref& entry) { return name == entry.name; });
}

DataMap::nameref* DataMap::nameOf(const Token* token) const noexcept {
    if (token->name == nullptr)
        return nullptr;
    nameref* const found = findName(token->name);
    return found != nullptr && found->token == token ? found : nullptr;
}

Token* DataMap::newToken(const Token* token) {
    if (token->kvnid == kQueryTag)
        eprintf(EPF_DBUG, "DataMap::newToken: About to create new Token for 5026; passing in ref token t=%p",
                static_cast<const void*>(token));
    return std::make_unique<Token>(*token).release();
}

Exchange* DataMap::newExchange(const Exchange* exchange) {
    return std::make_unique<Exchange>(*exchange).release();
}

bool DataMap::mayAdd(const Token& token, const char* name) const {
    if (lookupTokenViaNum(token.kvnid) != nullptr) {
        tp::te_error("Duplicate token id %d", token.kvnid);
        return false;
    }
    if (lookupTokenViaName(name) != nullptr) {
        tp::te_error("Duplicate token name %s", name);
        return false;
    }
    if (std::strlen(name) > MAX_NAME) {
        tp::te_error("Token name too large");
        return false;
    }
    if (token.priceNormalize && token.storage != Token::TY_DOUBLE) {
        tp::te_error("Token %s set to normalize but not double", name);
        return false;
    }
    return true;
}

Token* DataMap::addToken(const Token* token) {
    // The argument's own pointer is replaced by the registered name when the hook hands the argument back.
    const char* const name = token->name != nullptr ? token->name : "";
    if (!mayAdd(*token, name))
        return nullptr;
    char number[kNumberTextMax];
    char* const numberEnd = i64toa(number, token->kvnid);
    // A number of 32 bits has at most 11 characters.
    static_assert(std::numeric_limits<std::int32_t>::digits10 + 2 < sizeof token->sid);

    Token* const added = newToken(token);
    tp::MutexLock lock(m_mutex);
    if (Token* const present = lookupTokenViaNum(token->kvnid); present != nullptr) {
        // The hook registered one by itself, or another thread was faster; an object of its own goes.
        if (added != present && added != token)
            delete added;
        return present;
    }
    if (added == nullptr)
        return nullptr;
    std::fill(std::begin(added->sid), std::end(added->sid), '\0');
    std::copy(number, numberEnd, added->sid);
    enter(added, name);
    return added;
}

void DataMap::enter(Token* token, const char* name) {
    auto entry = std::make_unique<nameref>();
    std::snprintf(entry->name, sizeof entry->name, "%s", name);
    entry->token = token;
    entry->node.hashval = nameHash(entry->name);
    token->name = entry->name;
    token->node.hashval = numberHash(token->kvnid);
    tp::chash_insert(&nameRoot_, &entry.release()->node);
    tp::chash_insert(&tokenRoot_, &token->node);
}

Token* DataMap::lookupTokenViaId(const char* text) const noexcept {
    const bool negative = *text == '-';
    if (negative || *text == '+')
        ++text;
    std::int64_t id = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        id = id * 10 + (*text - '0');
        if (id > std::int64_t{1} << 31)
            return nullptr;
    }
    id = negative ? -id : id;
    if (id > std::numeric_limits<std::int32_t>::max())
        return nullptr;
    return lookupTokenViaNum(static_cast<int>(id));
}

Token* DataMap::lookupTokenViaName(std::string_view name) const noexcept {
    const nameref* const found = findName(name);
    return found != nullptr ? found->token : nullptr;
}

Token* DataMap::lookupTokenViaName(const char* name) const noexcept {
    return lookupTokenViaName(std::string_view(name));
}

Token* DataMap::lookupTypedTokenViaName(const char* name, unsigned type) const {
    Token* const token = lookupTokenViaName(name);
    if (token == nullptr) {
        tp::te_error("Token %s not found", name);
        return nullptr;
    }
    if (type != TY_ANY && token->storage != type) {
        tp::te_error("Token %s has type %d not %d", name, static_cast<int>(token->storage),
                     static_cast<int>(type));
        return nullptr;
    }
    return token;
}

int DataMap::lookupMany(const lookup* rows, unsigned count) const {
    for (const lookup* row = rows; row != rows + count; ++row) {
        Token* const token = lookupTypedTokenViaName(row->name, row->type);
        if (token == nullptr)
            return -1;
        *row->tok = token;
    }
    return 0;
}

int DataMap::createTokenSerialId(Token* token) {
    tp::MutexLock lock(m_mutex);
    // Another thread may be reading the number of a token that it knows already.
    const std::atomic_ref<std::int32_t> serialId(token->serialId);
    if (const int known = serialId.load(std::memory_order_relaxed); known >= 0)
        return known;
    serialId.store(++m_maxSerialId, std::memory_order_relaxed);
    return m_maxSerialId;
}

int DataMap::getTokenSerialId(Token* token) const noexcept {
    return std::atomic_ref<std::int32_t>(token->serialId).load(std::memory_order_relaxed);
}

const char* DataMap::getShortName(const Token* token) const noexcept {
    if (token->name == nullptr)
        return "";
    const nameref* const found = nameOf(token);
    return found != nullptr && found->shortname[0] != '\0' ? found->shortname : token->name;
}

int DataMap::setShortName(Token* token, const char* shortName) {
    nameref* const found = nameOf(token);
    if (found == nullptr) {
        tp::te_error("Token not registered");
        return -1;
    }
    if (std::strlen(shortName) > MAX_NAME) {
        tp::te_error("Short name too large");
        return -1;
    }
    std::snprintf(found->shortname, sizeof found->shortname, "%s", shortName);
    return 0;
}

Exchange* DataMap::findExchange(int id) const noexcept {
    return tp::chash_find(&exchangeRoot_, exchangeHash(id), &Exchange::node,
                          [](const Exchange&) { return true; });
}

Exchange* DataMap::lookupExchange(int id) {
    if (Exchange* const known = findExchange(id); known != nullptr)
        return known;
    const Exchange temporary(id);
    Exchange* const added = newExchange(&temporary);
    tp::MutexLock lock(m_mutex);
    if (Exchange* const present = findExchange(id); present != nullptr) {
        // Another thread was faster, or the hook registered one by itself.
        if (added != present)
            delete added;
        return present;
    }
    if (added == nullptr)
        return nullptr;
    added->node.hashval = exchangeHash(id);
    tp::chash_insert(&exchangeRoot_, &added->node);
    return added;
}

Exchange* DataMap::lookupLegacyExchange(const char* text) {
    const std::optional<int> id = legacyExchangeId(text);
    if (!id) {
        tp::te_error("Invalid exchange id (%s)", text);
        return nullptr;
    }
    return lookupExchange(*id);
}

void DataMap::copy(DataMap* from) {
    if (from == this)
        return;
    del();
    init();
    iterator tokens(from);
    while (const Token* const token = tokens.next())
        if (addToken(token) == nullptr)
            eprintf(EPF_WARN, "DataMap::copy: token %d not copied: %s", token->kvnid, tp::te_geterror());
}

void DataMap::hashStats(char* buf, int size) const {
    if (size <= 0)
        return;
    tp::MutexLock lock(m_mutex);
    const struct {
        const char* title;
        const tp::chash_root* root;
    } reports[] = {
        {"Tokens: ", &tokenRoot_}, {"Token names: ", &nameRoot_}, {"Source ids: ", &exchangeRoot_}};
    char* out = buf;
    char* const end = buf + size;
    *out = '\0';
    for (const auto& report : reports) {
        std::snprintf(out, static_cast<std::size_t>(end - out), "%s", report.title);
        out += std::strlen(out);
        tp::chash_eval(report.root, out, static_cast<int>(end - out));
        out += std::strlen(out);
    }
}

std::size_t DataMap::tokenCount() const {
    tp::MutexLock lock(m_mutex);
    return tokenRoot_.count;
}

std::size_t DataMap::exchangeCount() const {
    tp::MutexLock lock(m_mutex);
    return exchangeRoot_.count;
}

DataMap::iterator::iterator(DataMap* map) noexcept : m_iter(startOf(map->tokenRoot_)) {}

Token* DataMap::iterator::next() noexcept {
    return nextOf<Token>(m_iter);
}

DataMap::exchangeIterator::exchangeIterator(DataMap* map) noexcept : m_iter(startOf(map->exchangeRoot_)) {}

Exchange* DataMap::exchangeIterator::next() noexcept {
    return nextOf<Exchange>(m_iter);
}

} // namespace KVNAPI
