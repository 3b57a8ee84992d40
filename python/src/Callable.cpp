#include "Callable.h"

#include <stdexcept>
#include <string>

#include <cxxabi.h>

namespace nb = nanobind;

namespace tivra_python {
namespace {

/// "ValueError: the text", without the text where its own __str__ raises.
[[nodiscard]] std::string textOf(const nb::python_error& error) {
    std::string text = nb::str(error.type().attr("__name__")).c_str();
    try {
        if (error.value().is_valid())
            text.append(": ").append(nb::str(error.value()).c_str());
    } catch (const nb::python_error&) {
        text += ", whose text can't be had";
    }
    return text;
}

} // namespace

Callable::Callable(const nb::object& function) {
    if (function.is_none())
        return;
    if (PyCallable_Check(function.ptr()) == 0)
        throw nb::type_error("a callback has to be callable");
    m_function = std::shared_ptr<PyObject>(function.inc_ref().ptr(), [](PyObject* object) {
        // Where the interpreter is gone its memory is too.
        if (const HandOver hand; hand)
            Py_DECREF(object);
    });
}

nb::object Callable::resultOf(const nb::tuple& arguments) const {
    PyObject* result = nullptr;
    try {
        result = PyObject_CallObject(m_function.get(), arguments.ptr());
    } catch (const abi::__forced_unwind&) {
        stayForGood();
    }
    if (result == nullptr)
        throw nb::python_error();
    return nb::steal(result);
}

void Callable::raise(nb::python_error& error) const {
    const std::string text = textOf(error);
    try {
        error.restore();
        PyErr_WriteUnraisable(m_function.get());
    } catch (const abi::__forced_unwind&) {
        stayForGood();
    }
    throw std::runtime_error(text);
}

} // namespace tivra_python
