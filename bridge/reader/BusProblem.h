#pragma once

#include <cstdint>
#include <string>

namespace tivra {

/// Something that a BusReader has met and goes on from. What is missing because of it is a gap too.
struct BusProblem {
    /// What it is about.
    enum class Kind {
        Engine,     ///< the engine is lost, refuses something or doesn't answer; it is tried again
        Batch,      ///< a message of a stream isn't a batch that this reader can read
        LastValues, ///< last values or the state of a source can't be read
        Callback    ///< an exception has left a handler of the application
    };
    Kind kind = Kind::Engine;   ///< what it is about
    int partition = -1;         ///< of a batch, else -1
    std::uint64_t position = 0; ///< of the message in its stream, from 1; 0 where there is none
    std::string text;           ///< what was attempted, what is wrong and what to do, in a line for a log
};

} // namespace tivra
