#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "dictionary/MetaToken.h"
#include "kvnparse/DataMap.h"

namespace tivra_internal {

/// The dictionary of one hub, owned by its connection: it starts from the bootstrap table, and the thread of
/// the hub adds the downloaded rows. Look-ups may run on any thread meanwhile.
class MetaTokenMap final : public KVNAPI::DataMap {
public:
    /// A hub can introduce sources at any moment, but not without end.
    static constexpr std::size_t kMaxExchanges = 200'000;

    MetaTokenMap();
    ~MetaTokenMap() override = default;

    /// Adopts the token. False, with the token still the caller's, when its number or name is taken or the
    /// name is too long.
    [[nodiscard]] bool addMetaToken(std::unique_ptr<MetaToken>& token);

    /// The token of that name or number, else getUnknownToken(): never for a number or a name that comes from
    /// a hub or an application, which look up and test instead.
    [[nodiscard]] MetaToken* findkvn(const char* name);
    [[nodiscard]] MetaToken* findkvn(int number);
    /// The token that stands for unknown ones. Ends the process when no dictionary with it has been loaded.
    [[nodiscard]] MetaToken* getUnknownToken();

    /// The name of a token number, empty when the dictionary doesn't know it.
    [[nodiscard]] const char* tokenName(int number) const noexcept;

    /// The same for maps of this process with the same numbers, names and types; no hub can choose it.
    [[nodiscard]] std::uint64_t fingerprint() const noexcept {
        return m_fingerprint.load(std::memory_order_acquire);
    }

    /// Deletes every token and source. No other thread may be using the map.
    void cleanup();
    void loadBootStrapDic();

    /// A map of adopted tokens can't share them with a copy.
    void copy(KVNAPI::DataMap*) = delete;

protected:
    /// Adopts the token given instead of copying it; refuses one that is no MetaToken.
    KVNAPI::Token* newToken(const KVNAPI::Token* token) override;
    KVNAPI::Exchange* newExchange(const KVNAPI::Exchange* exchange) override;

private:
    std::atomic<std::uint64_t> m_fingerprint{
        0}; ///< the sum of those of the tokens, in whatever order they came
};

} // namespace tivra_internal
