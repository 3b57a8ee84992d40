#include "Slice.h"

#include "ExitCode.h"
#include "TimeRange.h"

#include <capture/CaptureNote.h>
#include <capture/CaptureReader.h>
#include <capture/CaptureWriter.h>
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string_view>
#include <vector>

namespace tivra_wire {

namespace {

/// The value of a field by its number, the first one; empty for none.
std::string_view valueOf(std::string_view body, std::string_view number) {
    while (!body.empty()) {
        const std::string_view piece = body.substr(0, body.find('|'));
        body.remove_prefix(std::min(body.size(), piece.size() + 1));
        if (piece.size() > number.size() && piece.substr(0, number.size()) == number &&
            piece[number.size()] == '=')
            return piece.substr(number.size() + 1);
    }
    return {};
}

/// A capture and the message of it that comes next.
class Track {
public:
    Track(const std::string& file, const TimeRange& range)
        : m_reader(file), m_range(range.after(firstTime(m_reader))) {
        if (!m_reader.isComplete())
            fmt::print(stderr,
                       "tivra-wire: note: the capture {} was cut off; its {} whole messages are read\n", file,
                       m_reader.messages());
        if (m_range.begin)
            m_reader.seek(*m_range.begin);
        advance();
    }

    [[nodiscard]] bool hasMessage() const { return m_hasMessage; }
    [[nodiscard]] const tivra_capture::Message& message() const { return m_message; }
    void advance() {
        do
            m_hasMessage = m_reader.next(m_message);
        while (m_hasMessage && !m_range.contains(m_message.nanoseconds));
    }

private:
    tivra_capture::CaptureReader m_reader;
    const TimeRange m_range;
    tivra_capture::Message m_message;
    bool m_hasMessage = false;
};

using Tracks = std::vector<std::unique_ptr<Track>>;

/// The one whose message is the earliest, the first of those at the same time; null at the end.
Track* earliest(const Tracks& tracks) {
    Track* found = nullptr;
    for (const std::unique_ptr<Track>& track : tracks) {
        if (track->hasMessage() &&
            (found == nullptr || track->message().nanoseconds < found->message().nanoseconds))
            found = track.get();
    }
    return found;
}

class Choice {
public:
    explicit Choice(const Options& options) : m_symbols(options.symbols.begin(), options.symbols.end()) {
        for (const int source : options.sources)
            m_sources.insert(std::to_string(source));
    }

    /// A note belongs to all, unless it is about a source that isn't wanted.
    [[nodiscard]] bool accepts(std::string_view body) const {
        if (tivra_capture::isNote(body)) {
            const tivra_capture::Note note = tivra_capture::noteOf(body);
            return note.value("source").empty() || isOneOf(m_sources, note.value("source"));
        }
        return isOneOf(m_sources, valueOf(body, "4")) && isOneOf(m_symbols, valueOf(body, "5"));
    }

private:
    using Names = std::set<std::string, std::less<>>;

    static bool isOneOf(const Names& names, std::string_view name) {
        return names.empty() || names.count(name) != 0;
    }

    Names m_sources;
    const Names m_symbols;
};

Tracks openAll(const Options& options) {
    Tracks tracks;
    try {
        for (const std::string& file : options.files)
            tracks.push_back(std::make_unique<Track>(file, options.range));
    } catch (const tivra_capture::CaptureError& error) {
        throw Failure(ExitCode::Fault, error.what());
    }
    return tracks;
}

/// Copies up to the first fault of the input, which it gives back; empty for none.
std::string copyAll(const Tracks& tracks, const Choice& choice, tivra_capture::CaptureWriter& writer) {
    while (Track* const track = earliest(tracks)) {
        if (choice.accepts(track->message().body))
            writer.add(track->message());
        try {
            track->advance();
        } catch (const tivra_capture::CaptureError& error) {
            return error.what();
        }
    }
    return {};
}

} // namespace

void slice(const Options& options) {
    const Tracks tracks = openAll(options); // before the output replaces anything
    std::string fault;
    try {
        tivra_capture::CaptureWriter writer(options.output);
        fault = copyAll(tracks, Choice(options), writer);
        writer.finish();
        fmt::print(stderr, "tivra-wire: {} messages and notes in {}\n", writer.messages(), options.output);
    } catch (const tivra_capture::CaptureError& error) {
        throw Failure(ExitCode::OutputFailed, error.what());
    }
    if (!fault.empty())
        throw Failure(ExitCode::Fault, fault);
}

} // namespace tivra_wire
