#pragma once

#include "kvnparse/DataMap.h"
#include "kvnparse/Token.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace KVNAPI {

/// The functions of those tokens that are read or written in a way of their own, in a table by the tokens'
/// dense index in their map. Used by one thread.
template<class Function>
class TokenFunctions {
public:
    /// Gives the token that function; null takes it back.
    void set(DataMap& map, Token* token, Function function) {
        const int serialId = map.createTokenSerialId(token);
        if (serialId > m_maxSerialId) {
            m_maxSerialId = serialId;
            m_rows.resize(static_cast<std::size_t>(m_maxSerialId + 8) / 8 * 8);
        }
        Row& row = m_rows[static_cast<std::size_t>(serialId)];
        if (row.token == nullptr || row.token == token) {
            row = {token, function};
            return;
        }
        const auto known = std::find_if(m_collided.begin(), m_collided.end(),
                                        [token](const Row& other) { return other.token == token; });
        if (known != m_collided.end())
            known->function = function;
        else
            m_collided.push_back({token, function});
    }

    /// The function of the token, or null.
    [[nodiscard]] Function find(const DataMap& map, Token* token) const noexcept {
        const int serialId = map.getTokenSerialId(token);
        if (serialId < 0 || serialId > m_maxSerialId)
            return nullptr;
        const Row& row = m_rows[static_cast<std::size_t>(serialId)];
        if (row.token == token)
            return row.function;
        for (const Row& other : m_collided)
            if (other.token == token)
                return other.function;
        return nullptr;
    }

    /// Forgets all tokens, whose map may be gone.
    void clear() noexcept {
        m_rows.clear();
        m_collided.clear();
        m_maxSerialId = -1;
    }

private:
    /// A function beside the token that it was set for, since two tokens of a copied map may share an index.
    struct Row {
        const Token* token = nullptr;
        Function function = nullptr;
    };

    std::vector<Row> m_rows;     ///< by serial id
    std::vector<Row> m_collided; ///< of tokens whose serial id another token holds
    std::int32_t m_maxSerialId = -1;
};

} // namespace KVNAPI
