#include "dictionary/MetaTokenMap.h"

#include <cstdio>
#include <cstdlib>

#include <tp/eprintf.h>
#include <tp/te_error.h>

#include "dictionary/BootstrapDictionary.h"

namespace tivra_internal {

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
    static_cast<void>(token.release());
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
