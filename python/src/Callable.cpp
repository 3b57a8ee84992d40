#include "Callable.h"

#include <stdexcept>
#include <string>

namespace nb = nanobind;

namespace tivra_python {

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

void Callable::callWith(const nb::tuple& arguments) const {
    const nb::object result = nb::steal(PyObject_CallObject(m_function.get(), arguments.ptr()));
    if (!result.is_valid())
        throw nb::python_error();
}

void Callable::raise(nb::python_error& error) const {
    std::string text = nb::str(error.type().attr("__name__")).c_str();
    if (error.value().is_valid()) {
        text += ": ";
        text += nb::str(error.value()).c_str();
    }
    error.restore();
    PyErr_WriteUnraisable(m_function.get());
    throw std::runtime_error(text);
}

} // namespace tivra_python
