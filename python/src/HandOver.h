#pragma once

#include <nanobind/nanobind.h>

namespace tivra_python {

/// Stays for good, on a thread that Python ends in the middle of C++ since the interpreter ends: its lock,
/// which leaving would need, isn't to be had any more. In a handler of `abi::__forced_unwind`.
[[noreturn]] void stayForGood() noexcept;

/// Whether this is a thread of the library, which has called Python.
[[nodiscard]] bool isOnLibraryThread() noexcept;

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

/// Gives the interpreter's lock up for a scope, on a thread of Python that waits or does something lengthy.
/// Once the interpreter ends, a thread that would take the lock again stays here for good: what Python does
/// with it, ending it in the middle of C++, would end the process. Nested it does nothing. @thread of Python
class Unlock {
public:
    Unlock();
    ~Unlock();
    Unlock(const Unlock&) = delete;
    Unlock& operator=(const Unlock&) = delete;

private:
    PyThreadState* m_state; ///< null of a nested one
};

/// The interpreter ends: neither threads of the library nor those that have given its lock up call it any
/// more. With the lock, which is given up in between.
void endHandOvers() noexcept;

} // namespace tivra_python
