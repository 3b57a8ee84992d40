#include "bus/FieldNames.h"

#include "bus/JsonText.h"

namespace tivra_bus {

const FieldName& FieldNames::of(const std::string& name) {
    const tp::MutexLock lock(m_mutex);
    const FieldName*& known = m_byPlace[&name];
    if (known == nullptr) {
        FieldName& made = m_names.emplace_back(FieldName{&name, name, ","});
        appendQuoted(made.text, name);
        made.text += ':';
        known = &made;
    }
    return *known;
}

} // namespace tivra_bus
