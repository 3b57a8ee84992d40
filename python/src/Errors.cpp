#include "Errors.h"

#include <exception>

#include "Bindings.h"
#include "Values.h"

namespace nb = nanobind;

namespace tivra_python {

nb::object makeException(const tivra::Error& error) {
    const nb::module_ errors = nb::module_::import_("tivra.errors");
    return errors.attr("from_native")(error.name(), error.phaseName(), toStr(error.cause()),
                                      toStr(error.advice()), toStr(error.hub()), error.status(),
                                      toStr(error.statusName()), error.systemError(), error.isRetryable());
}

void raiseInvalid(const char* cause, const char* advice) {
    throw tivra::Error(
        {tivra::Error::Code::InvalidArgument, tivra::Error::Phase::None, cause, advice, "", 0, "", 0});
}

void bindErrors(nb::module_&) {
    nb::register_exception_translator([](const std::exception_ptr& thrown, void*) {
        try {
            std::rethrow_exception(thrown);
        } catch (const tivra::Error& error) {
            const nb::object exception = makeException(error);
            PyErr_SetObject(exception.type().ptr(), exception.ptr());
        }
    });
}

} // namespace tivra_python
