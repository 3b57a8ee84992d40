#include "Run.h"

#include "BodyReader.h"
#include "Dictionary.h"
#include "FrameDump.h"
#include "FrameReader.h"
#include "Input.h"
#include "MapText.h"
#include "MessageFilter.h"
#include "MessageText.h"
#include "Output.h"

#include <fmt/format.h>

namespace tivra_wire {

namespace {

const char* formName(Form form) {
    static constexpr const char* kNames[] = {"kvn", "vkvn", "zkvn"};
    return kNames[static_cast<int>(form)];
}

class Files {
public:
    explicit Files(const Options& options)
        : m_options(options)
        , m_dictionary(options)
        , m_filter(options, m_dictionary)
        , m_output(options.output, options.task == Task::Convert && options.to == Form::Zkvn
                                       ? std::optional(options.level)
                                       : std::nullopt) {}

    /// Whether all of the input is well.
    [[nodiscard]] bool process() {
        bool isWell = true;
        if (m_options.task == Task::Map)
            m_output.write(mapText(m_dictionary));
        try {
            for (std::size_t i = 0; i < m_options.files.size() && isWell; ++i)
                isWell = processFile(m_options.files[i]);
        } catch (const Failure& failure) {
            if (failure.exitCode() != ExitCode::OutputFailed)
                m_output.finish();
            throw;
        }
        m_output.finish();
        return isWell;
    }

private:
    bool processFile(const std::string& file) {
        // Of a live pipe is seen at once what has come.
        Input input(file, [this] { m_output.flush(); });
        FrameReader reader(input, m_options.from);
        std::uint64_t frames = 0;
        try {
            BodyReader body(m_dictionary, reader.form());
            MessageText text(m_options, m_dictionary, reader.form());
            KVNAPI::Message message;
            std::uint64_t accepted = 0;
            for (Frame frame; ++frames, reader.next(frame);) {
                body.read(frame, message);
                if (!m_filter.accepts(message))
                    continue;
                ++accepted;
                if (m_options.task == Task::Dump)
                    m_output.write(dump(frame, reader.form(), m_dictionary));
                else if (m_options.task == Task::Convert)
                    m_output.write(text.of(frame, message));
            }
            if (m_options.task == Task::Check)
                m_output.write(fmt::format("{}: {}, {} messages in {} bytes, {} accepted\n", input.name(),
                                           formName(reader.form()), reader.frames(), reader.offset(),
                                           accepted));
            return true;
        } catch (const Fault& fault) {
            fmt::print(stderr, "tivra-wire: {}: byte {} (message {}): {}\n{}", input.name(), fault.offset(),
                       frames, fault.what(),
                       excerpt(reader.around(fault.offset()), reader.form() == Form::Vkvn));
            return false;
        }
    }

    const Options& m_options;
    Dictionary m_dictionary;
    MessageFilter m_filter;
    Output m_output;
};

} // namespace

ExitCode run(const Options& options) {
    return Files(options).process() ? ExitCode::Ended : ExitCode::Fault;
}

} // namespace tivra_wire
