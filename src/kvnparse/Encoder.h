#pragma once

#include "kvnparse/bufref.h"

#include <memory>

namespace KVNAPI {

class DataMap;
class Message;

/// Turns messages into bytes, by the dictionary that it is bound to. Text is written as it stands: a value
/// that holds a separator or an end byte of the form does not survive the way back. Used by one thread.
class Encoder {
public:
    Encoder() = default;
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    virtual ~Encoder() = default;

    /// Binds the encoder to a dictionary, which stays the caller's and must outlive it. Returns non-zero,
    /// with the old map kept and a text in te_geterror, when the map lacks a token that every encoder needs
    /// or has it with another storage.
    [[nodiscard]] virtual int setMetaMap(DataMap* map) = 0;

    /// Sets one option; -1 with a text in te_geterror for "help" and unknown names.
    [[nodiscard]] virtual int setOption(const char* name, const char* value) = 0;

    /// Writes the message into the room that `out` describes and sets its length to the bytes written.
    /// Returns 0; 1 with length 0 when the message has nothing to write; -1, with `out` kept, its room
    /// undefined and a text in te_geterror, when the room might not do. Every token of the message must be
    /// one of the map.
    [[nodiscard]] virtual int encode(bufref* out, const Message* msg) = 0;

    /// Sets the options of a list of name=value items separated by commas; see setOptions.
    [[nodiscard]] int optionParser(const char* text);

    /// An encoder of that short name ("kvn", "vkvn") bound to `map`, or null with a text in te_geterror.
    [[nodiscard]] static std::unique_ptr<Encoder> alloc(const char* name, DataMap* map);
};

} // namespace KVNAPI
