#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include <nanobind/nanobind.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/shared_ptr.h>

#include "Bindings.h"
#include "Errors.h"
#include "HandOver.h"
#include "PendingAnswer.h"
#include "Waiting.h"

namespace nb = nanobind;

namespace tivra_python {

PendingAnswer::PendingAnswer(tivra::Answer answer) : m_answer(std::move(answer)) {
    m_answer.then([result = m_result](tivra::Result<tivra::Snapshot> snapshot) {
        result->complete(std::move(snapshot));
    });
}

PendingAnswer::~PendingAnswer() {
    if (m_result == nullptr || m_result->isReady())
        return;
    const Unlock released;
    m_answer.cancel();
}

void PendingAnswer::cancel() {
    using tivra::Error;
    m_answer.cancel();
    m_result->complete(Error(
        {Error::Code::Cancelled, Error::Phase::Answer, "the request has been given up", "", "", 0, "", 0}));
}

namespace {

/// (records, failures), or raises why there is no answer.
[[nodiscard]] nb::tuple takeAnswer(PendingAnswer& self) {
    std::optional<tivra::Result<tivra::Snapshot>> result = self.result().take();
    if (!result)
        raiseInvalid("the answer has been taken, or isn't there yet", "keep what it gave");
    const tivra::Snapshot snapshot = std::move(*result).value();
    nb::list records;
    for (const tivra::Record& record : snapshot.records())
        records.append(nb::cast(record));
    nb::list failures;
    for (const tivra::Error& failure : snapshot.failures())
        failures.append(makeException(failure));
    return nb::make_tuple(nb::tuple(records), nb::tuple(failures));
}

} // namespace

void bindAnswers(nb::module_& module) {
    nb::class_<PendingAnswer>(module, "Answer", "A request and its answer.")
        .def("ready", [](const PendingAnswer& self) { return self.result().isReady(); })
        .def(
            "wait",
            [](const PendingAnswer& self, std::optional<double> seconds) {
                return waitInterruptibly(seconds,
                                         [&](auto deadline) { return self.result().waitUntil(deadline); });
            },
            nb::arg("seconds").none())
        .def("notify", [](const PendingAnswer& self, const NotifierHolder& notifier,
                          std::uint64_t token) { return self.result().notify(notifier.notifier, token); })
        .def("cancel", &PendingAnswer::cancel, nb::call_guard<Unlock>())
        .def("take", &takeAnswer);
}

} // namespace tivra_python
