#pragma once

#include <memory>
#include <utility>

#include <nanobind/nanobind.h>

#include "HandOver.h"

namespace tivra_python {

/// A function of Python that threads of the library call. Copies share it, and the last one may go on any
/// thread. What the function raises goes to sys.unraisablehook, and out of here as an exception that the
/// library counts and reports to the feed's on_error. @thread any
class Callable {
public:
    /// None for nothing. With the interpreter's lock.
    explicit Callable(const nanobind::object& function);

    explicit operator bool() const noexcept { return m_function != nullptr; }

    /// @param makeArguments  gives a tuple, and is called with the interpreter's lock
    /// @throws std::runtime_error when the function raises
    template<class Make>
    void call(Make&& makeArguments) const {
        ask(std::forward<Make>(makeArguments), [](const nanobind::object&) {});
    }

    /// The same of a function whose result counts.
    /// @param takeResult  gets it with the interpreter's lock, unless there is no interpreter any more
    template<class Make, class Take>
    void ask(Make&& makeArguments, Take&& takeResult) const {
        if (!m_function)
            return;
        const HandOver hand;
        if (!hand)
            return;
        try {
            const nanobind::tuple arguments = std::forward<Make>(makeArguments)();
            const nanobind::object result = resultOf(arguments);
            std::forward<Take>(takeResult)(result);
        } catch (nanobind::python_error& error) {
            raise(error);
        }
    }

private:
    [[nodiscard]] nanobind::object resultOf(const nanobind::tuple& arguments) const;
    [[noreturn]] void raise(nanobind::python_error& error) const;

    std::shared_ptr<PyObject> m_function;
};

} // namespace tivra_python
