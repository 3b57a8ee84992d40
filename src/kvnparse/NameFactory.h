#pragma once

#include <tp/te_error.h>

#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace KVNAPI {

/// A process-wide list of named factory functions; `Func` is a pointer to function. The list is never
/// destroyed, so that a thread outliving main can still look up.
template<class Func>
class NameFactory {
public:
    struct data {
        const char* name;
        const char* desc;
        Func func;
    };

    /// `builtinRows` are static.
    explicit constexpr NameFactory(std::span<const data> builtinRows) noexcept : m_builtin(builtinRows) {}
    NameFactory(const NameFactory&) = delete;
    NameFactory& operator=(const NameFactory&) = delete;

    /// Appends a row after the built-in ones, before threads start. The texts are kept by pointer.
    void registerName(Func func, const char* name, const char* desc) {
        // Released on purpose: no list of the process is ever destroyed.
        if (m_reg == nullptr)
            m_reg = std::make_unique<std::vector<data>>().release();
        m_reg->push_back({name, desc, func});
    }

    /// The function of the first row of that name, or null with a text in te_geterror: the list of rows for
    /// the name "help", else that the name is unknown.
    [[nodiscard]] Func getName(const char* name) const {
        const bool isHelp = std::string_view(name) == "help";
        if (isHelp)
            tp::te_error("\nAvailable options are:");
        for (const std::span<const data> rows : {m_builtin, added()}) {
            for (const data& row : rows) {
                if (isHelp)
                    tp::te_error_safe("%s\n  %15s : %s", tp::te_geterror(), row.name, row.desc);
                else if (std::string_view(name) == row.name)
                    return row.func;
            }
        }
        if (!isHelp)
            tp::te_error("Could not find option '%s'", name);
        return nullptr;
    }

private:
    [[nodiscard]] std::span<const data> added() const noexcept {
        return m_reg != nullptr ? std::span<const data>(*m_reg) : std::span<const data>();
    }

    std::span<const data> m_builtin;
    std::vector<data>* m_reg = nullptr;
};

} // namespace KVNAPI
