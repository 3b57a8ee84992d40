#include "HoldLoop.h"

#include <cstring>
#include <stdexcept>

#include "dictionary/MetaToken.h"
#include "feed/SubscriptionState.h"

namespace tivra_bench {

using namespace tivra_internal;

HoldLoop::HoldLoop(std::size_t symbols, const tivra::SubscriptionHandlers& handlers)
    : m_registry(std::make_shared<FeedRegistry>(m_sender, nullptr))
    , m_feed(std::make_unique<FeedImpl>(tivra::FeedOptions()))
    , m_stream(std::make_unique<FeedStream>(m_registry, *m_feed, m_dictionary, "bench", m_queue)) {
    addField(101, "BID", "FLOAT");
    addField(102, "BID.SIZE", "INTEGER");
    addField(103, "ASK", "FLOAT");
    addField(104, "ASK.SIZE", "INTEGER");
    addField(202, "QUOTE.DATETIME", "DATETIME");
    m_message.reset();
    m_message.exchange = m_dictionary.lookupExchange(kSource);
    for (const int number : {101, 102, 103, 104, 202}) {
        KVNAPI::Token* const token = m_dictionary.lookupTokenViaNum(number);
        KVNAPI::TVPair* const pair = m_message.addPair();
        if (token->storage == KVNAPI::Token::TY_DOUBLE)
            pair->setD(token, 123.25);
        else
            pair->setI(token, 300);
    }
    const auto shared = std::make_shared<const tivra::SubscriptionHandlers>(handlers);
    for (std::size_t i = 0; i < symbols; ++i) {
        m_symbols.push_back("SYM" + std::string(i < 10 ? "0" : "").append(std::to_string(i)));
        m_subscriptions.push_back(
            m_registry->subscribe(ItemKind::Symbol, {kSource, m_symbols.back()}, shared));
    }
    run(2 * symbols); // everything has been met
}

HoldLoop::~HoldLoop() {
    m_registry->detach();
    m_stream.reset();
    m_registry->close();
}

void HoldLoop::addField(int number, const char* name, const char* type) {
    auto token = std::make_unique<MetaToken>();
    token->setKVNToken(number);
    token->setTokenName(name, static_cast<long>(std::strlen(name)));
    if (!token->setKVNType(type, static_cast<long>(std::strlen(type))) || !m_dictionary.addMetaToken(token))
        throw std::logic_error("a field that the dictionary doesn't take");
}

void HoldLoop::run(std::size_t updates) {
    for (std::size_t i = 0; i < updates; ++i) {
        const std::string& symbol = m_symbols[m_next];
        m_next = m_next + 1 < m_symbols.size() ? m_next + 1 : 0;
        m_message.symbol = KVNAPI::bufref(symbol.data(), static_cast<KVNAPI::bufref_len_t>(symbol.size()));
        m_stream->deliver({m_message});
    }
}

} // namespace tivra_bench
