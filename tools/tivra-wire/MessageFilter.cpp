#include "MessageFilter.h"

#include "ExitCode.h"

#include <fmt/format.h>

#include <algorithm>

namespace tivra_wire {

namespace {

const KVNAPI::Token* needed(const Dictionary& dictionary, const char* name, unsigned storage, bool isUsed) {
    const KVNAPI::Token* const token = dictionary.find(name);
    if (isUsed && (token == nullptr || token->storage != storage))
        throw Failure(ExitCode::Usage,
                      fmt::format("cannot filter: the dictionary has no fitting token {}", name));
    return token;
}

} // namespace

MessageFilter::MessageFilter(const Options& options, const Dictionary& dictionary)
    : m_sources(options.sources.begin(), options.sources.end())
    , m_symbols(options.symbols.begin(), options.symbols.end())
    , m_sourceToken(needed(dictionary, "ENUM.SRC.ID", KVNAPI::Token::TY_INT, !m_sources.empty()))
    , m_symbolToken(needed(dictionary, "SYMBOL.TICKER", KVNAPI::Token::TY_STRING, !m_symbols.empty()))
    , m_deleteToken(dictionary.find("TOKEN.DEL")) {
    for (const std::string& name : options.tokens) {
        const KVNAPI::Token* const token = dictionary.find(name);
        if (token == nullptr)
            throw Failure(ExitCode::Usage, fmt::format("no map file has the token {} of --token", name));
        m_tokens.insert(token);
    }
}

bool MessageFilter::accepts(const KVNAPI::Message& message) const {
    bool hasToken = m_tokens.empty();
    bool hasSource = m_sources.empty();
    bool hasSymbol = m_symbols.empty();
    KVNAPI::Message::iterator pairs(&message);
    while (const KVNAPI::TVPair* const pair = pairs.next()) {
        // A deletion is a message about the token as well.
        hasToken = hasToken || m_tokens.count(pair->token) != 0 ||
                   (pair->token == m_deleteToken &&
                    std::any_of(m_tokens.begin(), m_tokens.end(),
                                [pair](const KVNAPI::Token* token) { return token->kvnid == pair->i; }));
        hasSource = hasSource || (pair->token == m_sourceToken && m_sources.count(pair->i) != 0);
        hasSymbol = hasSymbol || (pair->token == m_symbolToken && m_symbols.count(pair->s.view()) != 0);
    }
    return hasToken && hasSource && hasSymbol;
}

} // namespace tivra_wire
