#include "HandOver.h"

#include <atomic>

#include "Bindings.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

std::atomic<bool> s_isEnding{false};

/// Gives Python's state of a thread back when the thread ends.
class KeptState {
public:
    KeptState() = default;
    KeptState(const KeptState&) = delete;
    KeptState& operator=(const KeptState&) = delete;
    ~KeptState() {
        if (m_state == nullptr || s_isEnding)
            return;
        PyEval_RestoreThread(m_state);
        PyGILState_Release(PyGILState_UNLOCKED);
    }

    /// What the thread holds the lock by now.
    void keep() noexcept { m_state = PyThreadState_Get(); }

private:
    PyThreadState* m_state = nullptr;
};

thread_local KeptState t_kept;

} // namespace

HandOver::HandOver() {
    if (s_isEnding)
        return;
    m_isKept = PyGILState_GetThisThreadState() == nullptr;
    m_before = PyGILState_Ensure();
    if (m_isKept)
        t_kept.keep();
    m_isHeld = true;
}

HandOver::~HandOver() {
    if (!m_isHeld)
        return;
    if (m_isKept)
        PyEval_SaveThread();
    else
        PyGILState_Release(m_before);
}

void endHandOvers() noexcept {
    s_isEnding = true;
}

void bindHandOver(nb::module_& module) {
    module.def("end_hand_overs", &endHandOvers,
               "The interpreter ends: threads of the library call it no more.");
}

} // namespace tivra_python
