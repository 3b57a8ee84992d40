#pragma once

#include "Recorder.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_cat {

/// What a run records: a capture of the updates, the frames of all that comes, both or neither.
class Recordings {
public:
    /// Empty names for none. Throws Failure when a file can't be written.
    Recordings(const std::string& captureFile, const std::string& wireFile, std::size_t capacity,
               const Wakeup& wakeup);

    /// A message that came by itself. @thread user
    void addUpdate(std::string_view body);
    /// A message that answers a request, which means nothing to those who see a capture later. @thread user
    void addAnswer(std::string_view body);
    /// @thread user
    void addNote(const tivra_capture::Note& note);
    /// Takes nothing more. @thread application
    void close();

    [[nodiscard]] bool isFinished() const;
    [[nodiscard]] bool hasFailed() const;
    /// Whether a disk was too slow.
    [[nodiscard]] bool hasDropped() const;
    /// What came of each, for people.
    [[nodiscard]] std::vector<std::string> report(bool withSuccess) const;

private:
    [[nodiscard]] std::vector<const Recorder*> all() const;

    const std::unique_ptr<Recorder> m_capture; ///< null for none
    const std::unique_ptr<Recorder> m_wire;    ///< the same
};

} // namespace tivra_cat
