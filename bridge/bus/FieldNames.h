#pragma once

#include <tp/Mutex.h>

#include <deque>
#include <string>
#include <unordered_map>

namespace tivra_bus {

/// A field's name as records have it.
struct FieldName {
    const std::string* place; ///< of the name in the feed
    std::string name;
    std::string text; ///< in quotes, with a comma before and a colon after it
};

/// The names of a feed's fields, each written once. A feed never moves the name of a field, so a field is
/// known by the place of its name; and it bounds how many there are. @thread any
class FieldNames {
public:
    /// It stays for as long as this does.
    [[nodiscard]] const FieldName& of(const std::string& name);

private:
    tp::Mutex m_mutex;
    std::deque<FieldName> m_names TP_GUARDED_BY(m_mutex);
    std::unordered_map<const std::string*, const FieldName*> m_byPlace TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_bus
