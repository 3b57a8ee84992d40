#include "dictionary/MetaTokenMap.h"

#include <bit>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <tp/eprintf.h>
#include <tp/te_error.h>

#include "dictionary/BootstrapDictionary.h"

namespace tivra_internal {
namespace {

/// FNV-1a from a start that nobody outside of the process knows.
[[nodiscard]] std::uint64_t fingerprintOf(const MetaToken& token) {
    static const std::uint64_t kStart =
        static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
        std::bit_cast<std::uintptr_t>(&kBootstrapDictionary);
    std::uint64_t value = kStart;
    const auto add = [&value](std::uint64_t part) { value = (value ^ part) * 1099511628211U; };
    for (const char c : token.getTokenName())
        add(static_cast<unsigned char>(c));
    add(static_cast<std::uint32_t>(token.kvnid));
    add(token.getKVNType());
    return value;
}

} // namespace

MetaTokenMap::MetaTokenMap() {
    eprintf(EPF_DBUG, "Setting up bootstrap DIC");
    loadBootStrapDic();
}

void MetaTokenMap::loadBootStrapDic() {
    for (const BootstrapToken& row : kBootstrapDictionary) {
        if (row.number == 0)
            break;
        auto token = std::make_unique<MetaToken>();
        token->setKVNToken(row.number);
        token->setTokenName(row.name.data(), static_cast<long>(row.name.size()));
        static_cast<void>(token->setKVNType(row.typeWord.data(), static_cast<long>(row.typeWord.size())));
        token->setTokenLength(row.length);
        static_cast<void>(addMetaToken(token));
    }
}

bool MetaTokenMap::addMetaToken(std::unique_ptr<MetaToken>& token) {
    if (lookupTokenViaNum(token->kvnid) != nullptr)
        return false;
    if (addToken(token.get()) == nullptr) {
        eprintf(EPF_DBUG, "addMetaToken: addToken failed: %s", tp::te_geterror());
        return false;
    }
    const MetaToken& added = *token.release();
    m_fingerprint.fetch_add(fingerprintOf(added), std::memory_order_release);
    return true;
}

MetaToken* MetaTokenMap::findkvn(const char* name) {
    KVNAPI::Token* const token = lookupTokenViaName(name);
    return token != nullptr ? MetaToken::cast(token) : getUnknownToken();
}

MetaToken* MetaTokenMap::findkvn(int number) {
    KVNAPI::Token* const token = lookupTokenViaNum(number);
    return token != nullptr ? MetaToken::cast(token) : getUnknownToken();
}

MetaToken* MetaTokenMap::getUnknownToken() {
    KVNAPI::Token* const token = lookupTokenViaName("KVN.TOKEN.UNKNOWN.NUM");
    if (token == nullptr) {
        std::fputs("MetaTokenMap::getUnknownToken(): KVN.TOKEN.UNKNOWN.NUM not defined cannot continue\n",
                   stderr);
        std::exit(1);
    }
    return MetaToken::cast(token);
}

const char* MetaTokenMap::tokenName(int number) const noexcept {
    const KVNAPI::Token* const token = lookupTokenViaNum(number);
    return token != nullptr ? token->name : "";
}

void MetaTokenMap::cleanup() {
    del();
    init();
    m_fingerprint.store(0, std::memory_order_release);
}

KVNAPI::Token* MetaTokenMap::newToken(const KVNAPI::Token* token) {
    return const_cast<MetaToken*>(dynamic_cast<const MetaToken*>(token));
}

KVNAPI::Exchange* MetaTokenMap::newExchange(const KVNAPI::Exchange* exchange) {
    if (exchangeCount() >= kMaxExchanges)
        return nullptr;
    return DataMap::newExchange(exchange);
}

} // namespace tivra_internal
