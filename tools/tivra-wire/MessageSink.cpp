#include "MessageSink.h"

#include "ExitCode.h"
#include "FrameDump.h"

#include "kvnparse/FrameFormat.h"

#include <chrono>
#include <utility>

namespace tivra_wire {

namespace {

std::int64_t presentNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

/// Whatever a capture can't take ends the output.
template<class Work>
void guarded(const Work& work) {
    try {
        work();
    } catch (const tivra_capture::CaptureError& error) {
        throw Failure(ExitCode::OutputFailed, error.what());
    }
}

} // namespace

MessageSink::MessageSink(const Options& options, Dictionary& dictionary)
    : m_options(options), m_dictionary(dictionary), m_isConversion(options.task == Task::Convert) {
    if (m_isConversion && options.to == Form::Capture)
        guarded([&] { m_capture = std::make_unique<tivra_capture::CaptureWriter>(options.output); });
    else
        m_output.emplace(options.output, m_isConversion && options.to == Form::Zkvn
                                             ? std::optional(options.level)
                                             : std::nullopt);
}

void MessageSink::begin(Form from) {
    m_from = from;
    if (!m_isConversion)
        return;
    if (m_options.to != Form::Json && m_options.to != Form::Csv) {
        m_text.emplace(m_options, m_dictionary, from);
        return;
    }
    m_fields.emplace(m_dictionary, from, m_options.columns);
    if (m_options.to == Form::Csv && !std::exchange(m_hasHeader, true))
        write(m_fields->csvHeader());
}

void MessageSink::add(const Frame& frame, const KVNAPI::Message& message) {
    if (m_options.task == Task::Dump)
        write(dump(frame, m_from, m_dictionary));
    if (!m_isConversion)
        return;
    if (m_options.to == Form::Json) {
        write(m_fields->json(frame));
    } else if (m_options.to == Form::Csv) {
        write(m_fields->csv(frame));
    } else if (m_capture == nullptr) {
        write(m_text->of(frame, message));
    } else {
        const std::string_view bytes = m_text->of(frame, message);
        addToCapture(frame, bytes.substr(KVNAPI::kKvnHeaderSize, bytes.size() - KVNAPI::kKvnFrameExtra));
    }
}

void MessageSink::addNote(const Frame& frame) {
    if (m_isConversion && m_options.to == Form::Json)
        write(FieldText::noteJson(frame));
    else if (m_capture != nullptr)
        addToCapture(frame, frame.note);
    else if (m_options.task == Task::Dump)
        write("note " + printable(frame.note) + "\n");
}

/// A stream has no times: its messages get those at which they are read.
void MessageSink::addToCapture(const Frame& frame, std::string_view body) {
    if (body.size() > tivra_capture::kMaxBody)
        throw Fault(frame.offset, "a body that a capture can hold", "a longer one");
    guarded([&] { m_capture->add({frame.nanoseconds.value_or(presentNanoseconds()), body}); });
}

void MessageSink::write(std::string_view text) {
    if (m_output)
        m_output->write(text);
}

void MessageSink::flush() {
    if (m_output)
        m_output->flush();
}

void MessageSink::finish() {
    if (m_output)
        m_output->finish();
    else
        guarded([&] { m_capture->finish(); });
}

} // namespace tivra_wire
