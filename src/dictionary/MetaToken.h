#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "dictionary/KVNType.h"
#include "kvnparse/Token.h"

namespace tivra_internal {

/// A field of a hub's dictionary: a token that also knows what its value means and how long it may be.
/// Filled by the thread that loads the dictionary; constant once a MetaTokenMap has adopted it.
class MetaToken final : public KVNAPI::Token {
public:
    MetaToken() = default;
    MetaToken(const MetaToken&) = delete;
    MetaToken& operator=(const MetaToken&) = delete;

    void setKVNToken(int number) noexcept { kvnid = number; }
    [[nodiscard]] int getKVNToken() const noexcept { return kvnid; }

    void setTokenName(const char* text, long length);
    [[nodiscard]] const std::string& getTokenName() const noexcept { return tokenName; }

    /// Takes a type word of the dictionary. Any other word changes nothing.
    /// @return false for such a word
    bool setKVNType(const char* word, long length);
    [[nodiscard]] KVNType getKVNType() const noexcept { return m_kvnType; }

    void setTokenLength(std::size_t length) noexcept { m_maxLen = length; }
    /// The longest value in bytes, as the hub has said.
    [[nodiscard]] std::size_t getTokenLength() const noexcept { return m_maxLen; }
    [[nodiscard]] std::size_t getTokenDataLen() const noexcept { return m_maxLen; }

    /// Every token of a MetaTokenMap is a MetaToken: the map adopts no other.
    [[nodiscard]] static MetaToken* cast(KVNAPI::Token* token) noexcept {
        return static_cast<MetaToken*>(token);
    }
    [[nodiscard]] static const MetaToken* cast(const KVNAPI::Token* token) noexcept {
        return static_cast<const MetaToken*>(token);
    }

    friend bool operator==(const MetaToken& a, const MetaToken& b) noexcept { return a.kvnid == b.kvnid; }
    friend auto operator<=>(const MetaToken& a, const MetaToken& b) noexcept { return a.kvnid <=> b.kvnid; }

private:
    KVNType m_kvnType = KVN_STRING;
    std::string tokenName;
    std::size_t m_maxLen = 0;
};

} // namespace tivra_internal
