#pragma once

#include "Dictionary.h"
#include "Frame.h"

#include "kvnparse/KVNParse.h"
#include "kvnparse/Message.h"

namespace tivra_wire {

/// Reads the fields of frames or lines. All fields stay pairs, in their order: nothing is lost on the way to
/// another form.
class BodyReader {
public:
    /// Throws Failure with ExitCode::Usage when the dictionary lacks what every parser needs.
    BodyReader(Dictionary& dictionary, Form form);

    /// Throws Fault.
    void read(const Frame& frame, KVNAPI::Message& message);

private:
    void set(const char* option, const char* value);
    [[nodiscard]] Fault faultIn(const Frame& frame) const;

    const Form m_form;
    KVNAPI::KVNParse m_parse;
};

} // namespace tivra_wire
