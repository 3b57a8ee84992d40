#include "Run.h"

#include "BodyReader.h"
#include "CaptureFrames.h"
#include "Dictionary.h"
#include "FrameReader.h"
#include "Input.h"
#include "MapText.h"
#include "MessageFilter.h"
#include "MessageSink.h"
#include "Slice.h"

#include <fmt/format.h>

namespace tivra_wire {

namespace {

const char* formName(Form form) {
    static constexpr const char* kNames[] = {"kvn", "vkvn", "zkvn", "capture", "json", "csv"};
    return kNames[static_cast<int>(form)];
}

std::unique_ptr<FrameSource> openSource(const std::string& file, const Options& options, Input& input) {
    const bool isCapture = options.from ? options.from == Form::Capture : CaptureFrames::isCapture(file);
    if (isCapture)
        return std::make_unique<CaptureFrames>(file, options.range);
    if (options.range.isWanted())
        throw Failure(ExitCode::Usage,
                      fmt::format("{} is no capture: --begin and --end need the times of one", input.name()));
    return std::make_unique<FrameReader>(input, options.from);
}

class Files {
public:
    explicit Files(const Options& options)
        : m_options(options)
        , m_dictionary(options)
        , m_filter(options, m_dictionary)
        , m_sink(options, m_dictionary) {}

    /// Whether all of the input is well.
    [[nodiscard]] bool process() {
        bool isWell = true;
        if (m_options.task == Task::Map)
            m_sink.write(mapText(m_dictionary));
        try {
            for (std::size_t i = 0; i < m_options.files.size() && isWell; ++i)
                isWell = processFile(m_options.files[i]);
        } catch (const Failure& failure) {
            if (failure.exitCode() != ExitCode::OutputFailed)
                m_sink.finish();
            throw;
        }
        m_sink.finish();
        return isWell;
    }

private:
    bool processFile(const std::string& file) {
        // Of a live pipe is seen at once what has come.
        Input input(file, [this] { m_sink.flush(); });
        const std::unique_ptr<FrameSource> source = openSource(file, m_options, input);
        m_sink.begin(source->form());
        std::uint64_t frames = 0;
        try {
            const std::uint64_t accepted = processFrames(*source, frames);
            if (m_options.task == Task::Check)
                m_sink.write(fmt::format("{}: {}, {} messages in {} bytes, {} accepted{}\n", input.name(),
                                         formName(source->form()), source->frames(), source->offset(),
                                         accepted, m_notes == 0 ? "" : fmt::format(", {} notes", m_notes)));
            return true;
        } catch (const Fault& fault) {
            fmt::print(stderr, "tivra-wire: {}: byte {} (message {}): {}\n{}", input.name(), fault.offset(),
                       frames, fault.what(),
                       excerpt(source->around(fault.offset()), source->form() == Form::Vkvn));
            return false;
        }
    }

    /// @param frames  the number of the one that is being read, for a fault
    /// @return how many the filters accept.
    std::uint64_t processFrames(FrameSource& source, std::uint64_t& frames) {
        BodyReader body(m_dictionary, source.form());
        KVNAPI::Message message;
        std::uint64_t accepted = 0;
        m_notes = 0;
        for (Frame frame; ++frames, source.next(frame);) {
            if (!frame.note.empty()) {
                --frames;
                ++m_notes;
                m_sink.addNote(frame);
                continue;
            }
            body.read(frame, message);
            if (!m_filter.accepts(message))
                continue;
            ++accepted;
            m_sink.add(frame, message);
        }
        return accepted;
    }

    const Options& m_options;
    Dictionary m_dictionary;
    MessageFilter m_filter;
    MessageSink m_sink;
    std::uint64_t m_notes = 0; ///< of the present file
};

} // namespace

ExitCode run(const Options& options) {
    if (options.task == Task::Slice) {
        slice(options);
        return ExitCode::Ended;
    }
    return Files(options).process() ? ExitCode::Ended : ExitCode::Fault;
}

} // namespace tivra_wire
