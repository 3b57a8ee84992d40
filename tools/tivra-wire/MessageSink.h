#pragma once

#include "FieldText.h"
#include "MessageText.h"
#include "Output.h"

#include <capture/CaptureWriter.h>

#include <memory>
#include <optional>

namespace tivra_wire {

/// Where messages go, in the form that the options ask for. Throws Failure with ExitCode::OutputFailed.
class MessageSink {
public:
    MessageSink(const Options& options, Dictionary& dictionary);

    /// The messages to come have this form.
    void begin(Form from);
    /// Throws Fault for a message that the form can't hold.
    void add(const Frame& frame, const KVNAPI::Message& message);
    /// A note of a capture, where the form has a place for it.
    void addNote(const Frame& frame);
    void write(std::string_view text);
    /// Hands on what waits, as far as the form allows it.
    void flush();
    /// The last call.
    void finish();

private:
    void addToCapture(const Frame& frame, std::string_view body);

    const Options& m_options;
    Dictionary& m_dictionary;
    Form m_from = Form::Kvn;
    const bool m_isConversion;
    std::optional<Output> m_output;                          ///< of all but captures
    std::unique_ptr<tivra_capture::CaptureWriter> m_capture; ///< null otherwise
    std::optional<MessageText> m_text;                       ///< of the present file
    std::optional<FieldText> m_fields;                       ///< the same, of JSON and CSV
    bool m_hasHeader = false;
};

} // namespace tivra_wire
