#pragma once

#include <mutex>
#include <vector>

namespace KVNAPI {

/// The rows of one process-wide list of named factory functions. Built-in rows are entered at the first
/// use, not by initialisers of the object files that hold the functions, which a linker may drop when they
/// come from an archive. The rows are never destroyed, so that a thread outliving main can still look up.
class _factory {
public:
    using untyped_func_t = void (*)();
    using fill_t = void (*)(_factory& list);

    struct data {
        const char* name;
        const char* desc;
        untyped_func_t func;
    };

    explicit constexpr _factory(fill_t builtinRows) noexcept : m_builtinRows(builtinRows) {}
    _factory(const _factory&) = delete;
    _factory& operator=(const _factory&) = delete;

    /// Appends a row; the texts are kept by pointer. Called before threads start, or while filling.
    void append(untyped_func_t func, const char* name, const char* desc);

    /// The first row of that name, or null with a text in te_geterror: the list of rows for the name
    /// "help", else that the name is unknown.
    [[nodiscard]] untyped_func_t find(const char* name);

    /// Enters the built-in rows, once; `find` does so by itself.
    void complete();

private:
    void reportRows() const;

    fill_t m_builtinRows;
    std::once_flag m_completed;
    std::vector<data>* m_reg = nullptr;
};

/// A _factory whose functions all have the type `Func`, a pointer to function.
template<class Func>
class NameFactory {
public:
    explicit constexpr NameFactory(_factory::fill_t builtinRows) noexcept : m_rows(builtinRows) {}

    /// Appends a row of the user's own behind the built-in ones, before threads start.
    void registerName(Func func, const char* name, const char* desc) {
        m_rows.complete();
        m_rows.append(untyped(func), name, desc);
    }

    /// The factory function of that name, or null with a text in te_geterror.
    [[nodiscard]] Func getName(const char* name) { return reinterpret_cast<Func>(m_rows.find(name)); }

    [[nodiscard]] static _factory::untyped_func_t untyped(Func func) noexcept {
        return reinterpret_cast<_factory::untyped_func_t>(func);
    }

private:
    _factory m_rows;
};

} // namespace KVNAPI
