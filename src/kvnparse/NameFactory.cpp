#include "kvnparse/NameFactory.h"

#include <tp/te_error.h>

#include <algorithm>
#include <memory>
#include <string_view>

namespace KVNAPI {

void _factory::append(untyped_func_t func, const char* name, const char* desc) {
    // Released on purpose: no list of the process is ever destroyed.
    if (m_reg == nullptr)
        m_reg = std::make_unique<std::vector<data>>().release();
    m_reg->push_back({name, desc, func});
}

void _factory::complete() {
    std::call_once(m_completed, [this] {
        if (m_builtinRows != nullptr)
            m_builtinRows(*this);
    });
}

_factory::untyped_func_t _factory::find(const char* name) {
    complete();
    const std::string_view wanted(name);
    if (wanted == "help") {
        reportRows();
        return nullptr;
    }
    if (m_reg != nullptr) {
        const auto row =
            std::find_if(m_reg->begin(), m_reg->end(), [&](const data& r) { return wanted == r.name; });
        if (row != m_reg->end())
            return row->func;
    }
    tp::te_error("Could not find option '%s'", name);
    return nullptr;
}

void _factory::reportRows() const {
    tp::te_error("\nAvailable options are:");
    if (m_reg == nullptr)
        return;
    for (const data& row : *m_reg)
        tp::te_error_safe("%s\n  %15s : %s", tp::te_geterror(), row.name, row.desc);
}

} // namespace KVNAPI
