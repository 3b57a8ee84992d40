#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tivra_bus {

/// A symbol of a source.
struct SymbolKey {
    int source = 0;
    std::string symbol;
};

/// A look at one.
struct SymbolLook {
    int source = 0;
    std::string_view symbol;

    SymbolLook(int ofSource, std::string_view ofSymbol) : source(ofSource), symbol(ofSymbol) {}
    // NOLINTNEXTLINE(google-explicit-constructor): keys are compared with looks
    SymbolLook(const SymbolKey& key) : source(key.source), symbol(key.symbol) {}
    friend bool operator==(const SymbolLook&, const SymbolLook&) = default;
};

struct SymbolHash {
    using is_transparent = void;
    std::size_t operator()(const SymbolLook& key) const {
        return std::hash<std::string_view>()(key.symbol) + static_cast<std::size_t>(key.source);
    }
};

struct SymbolEqual {
    using is_transparent = void;
    bool operator()(const SymbolLook& a, const SymbolLook& b) const { return a == b; }
};

/// Something for each symbol, found without making a key. What it holds never moves.
template<class T>
class SymbolMap {
public:
    using Entry = std::pair<const SymbolKey, T>;

    /// Made where there is none.
    [[nodiscard]] Entry& operator[](const SymbolLook& key) {
        if (const auto found = m_entries.find(key); found != m_entries.end())
            return *found;
        return *m_entries.emplace(SymbolKey{key.source, std::string(key.symbol)}, T{}).first;
    }
    [[nodiscard]] auto begin() { return m_entries.begin(); }
    [[nodiscard]] auto end() { return m_entries.end(); }

private:
    std::unordered_map<SymbolKey, T, SymbolHash, SymbolEqual> m_entries;
};

} // namespace tivra_bus
