#pragma once

#include "kvnparse/bufref.h"

#include <cstddef>
#include <memory>

namespace KVNAPI {

/// Undoes the compression of one zlib stream that comes in pieces. Keeps no pointer into its input or its
/// output between two calls. Used by one thread.
class Inflater {
public:
    /// The codes are zlib's.
    enum Code { PROGRESS = 0, DATA_ERROR = -3, NO_MEMORY = -4 };

    /// What one call has done.
    struct Step {
        Code code = PROGRESS;     ///< otherwise the stream can't go on, and nothing of this call counts
        std::size_t consumed = 0; ///< from the front of the input
        std::size_t produced = 0; ///< less than the room only when more input is needed, or none is wanted
    };

    Inflater() = default;
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    virtual ~Inflater() = default;

    /// Begins a new stream. Returns PROGRESS or NO_MEMORY.
    virtual Code restart() = 0;
    /// Goes on with `input`, which continues what earlier calls have consumed. Every byte that follows from
    /// it is put out as far as there is room; after the end of the stream nothing is consumed.
    [[nodiscard]] virtual Step inflate(bufref input, char* output, std::size_t room) = 0;
    /// Why the last call has refused the stream; may be empty.
    [[nodiscard]] virtual const char* reason() const = 0;
    /// Whose code it is, for the log.
    [[nodiscard]] virtual const char* name() const = 0;
};

/// The one that this library was built with, with a new stream.
[[nodiscard]] std::unique_ptr<Inflater> makeInflater();

} // namespace KVNAPI
