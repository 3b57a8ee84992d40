#pragma once

#include "Dictionary.h"
#include "Options.h"

#include "kvnparse/Message.h"

#include <set>
#include <string>

namespace tivra_wire {

/// Chooses messages: of the sources, of the symbols, and with the tokens of the options, one of each kind
/// that was given.
class MessageFilter {
public:
    /// Throws Failure with ExitCode::Usage for a token that the dictionary lacks.
    MessageFilter(const Options& options, const Dictionary& dictionary);

    [[nodiscard]] bool accepts(const KVNAPI::Message& message) const;

private:
    std::set<const KVNAPI::Token*> m_tokens;
    std::set<std::int64_t> m_sources;
    std::set<std::string, std::less<>> m_symbols;
    const KVNAPI::Token* m_sourceToken;
    const KVNAPI::Token* m_symbolToken;
    const KVNAPI::Token* m_deleteToken;
};

} // namespace tivra_wire
