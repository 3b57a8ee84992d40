#include "HandOver.h"

#include <atomic>
#include <chrono>
#include <thread>

#include <cxxabi.h>
#include <unistd.h>

#include "Bindings.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

std::atomic<bool> s_isEnding{false};
/// Threads that are about to take the lock again.
std::atomic<int> s_returning{0};
/// The one that ends the interpreter.
std::atomic<std::thread::id> s_ender{};

/// Gives Python's state of a thread back when the thread ends.
class KeptState {
public:
    KeptState() = default;
    KeptState(const KeptState&) = delete;
    KeptState& operator=(const KeptState&) = delete;
    ~KeptState() {
        if (m_state == nullptr || s_isEnding)
            return;
        try {
            PyEval_RestoreThread(m_state);
        } catch (const abi::__forced_unwind&) {
            stayForGood();
        }
        PyGILState_Release(PyGILState_UNLOCKED);
    }

    /// What the thread holds the lock by now.
    void keep() noexcept { m_state = PyThreadState_Get(); }
    [[nodiscard]] bool isKept() const noexcept { return m_state != nullptr; }

private:
    PyThreadState* m_state = nullptr;
};

thread_local KeptState t_kept;

} // namespace

void stayForGood() noexcept {
    for (;;)
        pause();
}

bool isOnLibraryThread() noexcept {
    return t_kept.isKept();
}

HandOver::HandOver() {
    if (s_isEnding)
        return;
    m_isKept = PyGILState_GetThisThreadState() == nullptr;
    try {
        m_before = PyGILState_Ensure();
    } catch (const abi::__forced_unwind&) {
        stayForGood();
    }
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

Unlock::Unlock() : m_state(PyGILState_Check() != 0 ? PyEval_SaveThread() : nullptr) {}

Unlock::~Unlock() {
    if (m_state == nullptr)
        return;
    ++s_returning;
    if (s_isEnding && s_ender.load() != std::this_thread::get_id()) {
        --s_returning;
        stayForGood();
    }
    try {
        PyEval_RestoreThread(m_state);
    } catch (const abi::__forced_unwind&) {
        --s_returning;
        stayForGood();
    }
    --s_returning;
}

void endHandOvers() noexcept {
    s_ender = std::this_thread::get_id();
    s_isEnding = true;
    // Those that had seen no end yet get the lock; after a fork they may be of the parent.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    PyThreadState* const state = PyEval_SaveThread();
    while (s_returning != 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    PyEval_RestoreThread(state);
}

void bindHandOver(nb::module_& module) {
    module.def("end_hand_overs", &endHandOvers,
               "The interpreter ends: threads of the library call it no more.");
}

} // namespace tivra_python
