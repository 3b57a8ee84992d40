#pragma once

#include "kvnparse/Exchange.h"
#include "kvnparse/Token.h"

#include <tp/Mutex.h>
#include <tp/chash.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KVNAPI {

/// The registry that gives the numbers on the wire their meaning: every Token and Exchange of one dictionary.
/// It owns them, and each stays valid until the map is destroyed or copied over. Look-ups take no lock and
/// may run on any thread while another inserts; inserts take the map's mutex. Failures are null or -1, with
/// a text in te_geterror and the map unchanged.
class DataMap {
public:
    static constexpr int MAX_NAME = 64;   ///< longest name and longest short name, in bytes
    static constexpr unsigned TY_ANY = 3; ///< wildcard of typed look-ups

    enum MapDir_t { BD_FORWARD = 1, BD_REVERSE = 2, BD_BOTH = 3 };

    /// One row of lookupMany.
    struct lookup {
        const char* name;
        unsigned type; ///< a Token::Storage or TY_ANY
        Token** tok;   ///< filled with the token found
    };

    DataMap();
    DataMap(const DataMap&) = delete;
    DataMap& operator=(const DataMap&) = delete;
    virtual ~DataMap();

    /// Registers what newToken makes of `token`. Null when the number or the name is taken, the name is too
    /// long, or a price is no double.
    [[nodiscard]] Token* addToken(const Token* token);

    [[nodiscard]] Token* lookupTokenViaNum(int id) const {
        // The hash is one-to-one with the number, so nothing else needs comparing.
        return tp::chash_find(&tokenRoot_, numberHash(id), &Token::node, [](const Token&) { return true; });
    }
    /// The number may have a sign; text without digits looks up 0.
    [[nodiscard]] Token* lookupTokenViaId(const char* text) const noexcept;
    [[nodiscard]] Token* lookupTokenViaName(const char* name) const noexcept;
    [[nodiscard]] Token* lookupTokenViaName(std::string_view name) const noexcept;
    [[nodiscard]] Token* lookupTypedTokenViaName(const char* name, unsigned type) const;
    /// Returns -1 at the first row that fails; the rows before it stay filled.
    [[nodiscard]] int lookupMany(const lookup* rows, unsigned count) const;

    /// The token's dense index in this map, assigned at the first call.
    int createTokenSerialId(Token* token);
    [[nodiscard]] int getTokenSerialId(Token* token) const noexcept;

    /// The short name if one was set, else the name.
    [[nodiscard]] const char* getShortName(const Token* token) const noexcept;
    [[nodiscard]] int setShortName(Token* token, const char* shortName);

    /// Finds, or creates on first sight. Null only when newExchange refuses.
    [[nodiscard]] Exchange* lookupExchange(int id);
    /// The older text form: two digits of base 16 and perhaps a lower-case letter.
    [[nodiscard]] Exchange* lookupLegacyExchange(const char* text);

    /// Replaces all content by copies of the other map's tokens, with their serial ids but without exchanges
    /// and short names. No other thread may be using this map. Copying itself does nothing.
    void copy(DataMap* from);

    /// Load reports of the three indexes.
    void hashStats(char* buf, int size) const;

    [[nodiscard]] std::size_t tokenCount() const;
    [[nodiscard]] std::size_t exchangeCount() const;

    /// Changes whenever all tokens and exchanges handed out so far have become invalid.
    [[nodiscard]] std::uint64_t generation() const noexcept {
        return m_generation.load(std::memory_order_relaxed);
    }

    /// Walks all tokens, in no particular order. The map must not change meanwhile.
    class iterator {
    public:
        explicit iterator(DataMap* map) noexcept;
        [[nodiscard]] Token* next() noexcept;

    private:
        tp::chash_iter m_iter;
    };

    /// Walks all exchanges, in no particular order. The map must not change meanwhile.
    class exchangeIterator {
    public:
        explicit exchangeIterator(DataMap* map) noexcept;
        [[nodiscard]] Exchange* next() noexcept;

    private:
        tp::chash_iter m_iter;
    };

protected:
    /// What addToken registers in place of its argument; null refuses. Called without the map's mutex.
    virtual Token* newToken(const Token* token);
    /// The same for lookupExchange.
    virtual Exchange* newExchange(const Exchange* exchange);

    /// Deletes all tokens and exchanges; only init or the end of the map may follow.
    void del();
    void init();

private:
    /// The registered name of a token.
    struct nameref {
        tp::chash_node node;
        Token* token = nullptr;
        char name[MAX_NAME + 1] = {};
        char shortname[MAX_NAME + 1] = {};
    };

    [[nodiscard]] static unsigned long numberHash(int id) noexcept {
        return static_cast<unsigned long>(
            static_cast<std::int64_t>(static_cast<std::int32_t>(static_cast<std::uint32_t>(id) * 33U)));
    }
    [[nodiscard]] static unsigned long exchangeHash(int id) noexcept {
        return static_cast<unsigned long>(static_cast<std::int64_t>(id));
    }
    [[nodiscard]] static unsigned long nameHash(std::string_view name) noexcept;

    [[nodiscard]] Exchange* findExchange(int id) const noexcept;
    [[nodiscard]] nameref* findName(std::string_view name) const noexcept;
    [[nodiscard]] nameref* nameOf(const Token* token) const noexcept;
    [[nodiscard]] bool mayAdd(const Token& token, const char* name) const;
    void enter(Token* token, const char* name) TP_REQUIRES(m_mutex);

    /// Taken last, also below a mutex that is a leaf elsewhere.
    static constexpr tp::LockRank kRank{2000, "DataMap::m_mutex"};
    mutable tp::Mutex m_mutex{kRank}; ///< inserts into the roots, and serial ids; look-ups need none
    std::int32_t m_maxSerialId TP_GUARDED_BY(m_mutex) = -1;
    tp::chash_root tokenRoot_;
    tp::chash_root nameRoot_;
    tp::chash_root exchangeRoot_;

    std::atomic<std::uint64_t> m_generation{0};
};

} // namespace KVNAPI
