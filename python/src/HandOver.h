#pragma once

#include <nanobind/nanobind.h>

namespace tivra_python {

/// Lets a thread of the library call Python, as long as it lives. A thread keeps the state that Python wants
/// for it until it ends: making one for each callback would cost more than the callback. Threads of Python
/// may use it too. @thread any, with the interpreter's lock or without
class HandOver {
public:
    HandOver();
    ~HandOver();
    HandOver(const HandOver&) = delete;
    HandOver& operator=(const HandOver&) = delete;

    /// False once the interpreter ends: nothing of Python may be touched.
    explicit operator bool() const noexcept { return m_isHeld; }

private:
    bool m_isHeld = false;
    bool m_isKept = false; ///< it is the thread's first: the state stays
    PyGILState_STATE m_before = PyGILState_UNLOCKED;
};

/// The interpreter ends: threads of the library call it no more.
void endHandOvers() noexcept;

} // namespace tivra_python
