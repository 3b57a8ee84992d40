#pragma once

#include <memory>

#include <feed/Answer.h>

#include "Pending.h"

namespace tivra_python {

/// A request of Python and its answer. One that goes before its answer gives the request up.
class PendingAnswer {
public:
    explicit PendingAnswer(tivra::Answer answer);
    ~PendingAnswer();
    PendingAnswer(PendingAnswer&& other) noexcept = default;
    PendingAnswer& operator=(PendingAnswer&&) = delete;

    [[nodiscard]] Pending<tivra::Snapshot>& result() const noexcept { return *m_result; }
    /// Whoever waits gets the error (Cancelled). Without the interpreter's lock.
    void cancel();

private:
    tivra::Answer m_answer;
    std::shared_ptr<Pending<tivra::Snapshot>> m_result = std::make_shared<Pending<tivra::Snapshot>>();
};

} // namespace tivra_python
