#pragma once

#include <set>

#include <tp/Mutex.h>

namespace tivra_internal {

/// A set that locks for itself. @thread any
template<typename Value>
class LockedSet {
public:
    /// False when it was there already.
    bool insert(const Value& value) {
        tp::MutexLock lock(m_mutex);
        return m_values.insert(value).second;
    }
    void erase(const Value& value) {
        tp::MutexLock lock(m_mutex);
        m_values.erase(value);
    }
    [[nodiscard]] bool contains(const Value& value) const {
        tp::MutexLock lock(m_mutex);
        return m_values.count(value) != 0;
    }
    void clear() {
        tp::MutexLock lock(m_mutex);
        m_values.clear();
    }

private:
    mutable tp::Mutex m_mutex; ///< guards the set
    std::set<Value> m_values TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
