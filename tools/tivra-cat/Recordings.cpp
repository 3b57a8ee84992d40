#include "Recordings.h"

#include <fmt/format.h>

#include <algorithm>

namespace tivra_cat {

namespace {

std::unique_ptr<Recorder> recorderFor(const std::string& file, RecordTarget::Form form, std::size_t capacity,
                                      const Wakeup& wakeup) {
    return file.empty() ? nullptr : std::make_unique<Recorder>(file, form, capacity, wakeup);
}

} // namespace

Recordings::Recordings(const std::string& captureFile, const std::string& wireFile, std::size_t capacity,
                       const Wakeup& wakeup)
    : m_capture(recorderFor(captureFile, RecordTarget::Form::Capture, capacity, wakeup))
    , m_wire(recorderFor(wireFile, RecordTarget::Form::Wire, capacity, wakeup)) {}

void Recordings::addUpdate(std::string_view body) {
    if (m_capture != nullptr)
        m_capture->add(body);
    if (m_wire != nullptr)
        m_wire->add(body);
}

void Recordings::addAnswer(std::string_view body) {
    if (m_wire != nullptr && !body.empty())
        m_wire->add(body);
}

void Recordings::addNote(const tivra_capture::Note& note) {
    if (m_capture != nullptr)
        m_capture->add(note);
}

void Recordings::close() {
    if (m_capture != nullptr)
        m_capture->close();
    if (m_wire != nullptr)
        m_wire->close();
}

bool Recordings::isFinished() const {
    const std::vector<const Recorder*> recorders = all();
    return std::all_of(recorders.begin(), recorders.end(),
                       [](const Recorder* each) { return each->isFinished(); });
}

bool Recordings::hasFailed() const {
    const std::vector<const Recorder*> recorders = all();
    return std::any_of(recorders.begin(), recorders.end(),
                       [](const Recorder* each) { return each->hasFailed(); });
}

bool Recordings::hasDropped() const {
    const std::vector<const Recorder*> recorders = all();
    return std::any_of(recorders.begin(), recorders.end(),
                       [](const Recorder* each) { return each->dropped() > 0; });
}

std::vector<std::string> Recordings::report(bool withSuccess) const {
    std::vector<std::string> lines;
    for (const Recorder* recorder : all()) {
        if (recorder->hasFailed())
            lines.push_back(recorder->error());
        else if (withSuccess)
            lines.push_back(fmt::format("recorded {} messages in {}, dropped {}", recorder->written(),
                                        recorder->path(), recorder->dropped()));
    }
    return lines;
}

std::vector<const Recorder*> Recordings::all() const {
    std::vector<const Recorder*> recorders;
    for (const Recorder* recorder : {m_capture.get(), m_wire.get()}) {
        if (recorder != nullptr)
            recorders.push_back(recorder);
    }
    return recorders;
}

} // namespace tivra_cat
