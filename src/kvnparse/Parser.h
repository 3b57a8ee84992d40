#pragma once

#include "kvnparse/bufref.h"

#include <memory>

namespace KVNAPI {

class DataMap;
class Message;

/// Turns pushed bytes into messages, by the dictionary that it is bound to. Used by one thread.
class Parser {
public:
    Parser() = default;
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;
    virtual ~Parser() = default;

    /// Binds the parser to a dictionary, which stays the caller's and must outlive it. Returns non-zero, with
    /// the old map kept, when the map lacks a token that every parser needs.
    [[nodiscard]] virtual int setMetaMap(DataMap* map) = 0;

    /// Sets one option; -1 for an unknown name.
    [[nodiscard]] virtual int setOption(const char* name, const char* value) = 0;

    /// Makes `bytes` the ones to work on; they stay the caller's.
    virtual void push(bufref bytes) = 0;

    /// Moves the unconsumed bytes to the start of `dst` and goes on there. Returns their count.
    [[nodiscard]] virtual int moveRemaining(bufref dst) = 0;

    /// Returns 0 with a filled message, 1 when more input is needed, and -1 after a framing or parse error,
    /// with its text in te_geterror. The next call goes on with the next frame.
    [[nodiscard]] virtual int pull(Message* message) = 0;

    /// For a caller who has one frame in hand and nothing else: fills the message from it, past what has been
    /// pushed. Returns 0 or -1 as pull does, or 1, with nothing done, when the bytes are not exactly one
    /// whole frame or the parser has no such way: push and pull say what is in them.
    [[nodiscard]] virtual int parseFrame(bufref frame, Message* message);

    /// For parsers that hand out plain bytes: fills `*out`. Others return -1.
    [[nodiscard]] virtual int pull(bufref* out) = 0;

    /// Forgets all pushed bytes.
    virtual void reset() = 0;

    /// Length of the frame that the last message came from, 0 after a failed parse.
    [[nodiscard]] virtual unsigned int msglen() const = 0;

    /// Whether the texts of messages stay in the pushed bytes, and so are only valid while these are; at
    /// first they are copied into the message. A parser of bytes of its own goes on copying.
    virtual void setTextsInFrame(bool inFrame) { static_cast<void>(inFrame); }

    /// Whether numbers stay in the pushed bytes as texts until they are asked for, on the same terms.
    virtual void setLazyValues(bool lazy) { static_cast<void>(lazy); }

    /// Sets the options of a list of name=value items separated by commas; see setOptions.
    [[nodiscard]] int optionParser(const char* text);

    /// A parser of that short name ("kvn", "vkvn") bound to `map`, or null with a text in te_geterror.
    [[nodiscard]] static std::unique_ptr<Parser> alloc(const char* name, DataMap* map, int maxBufferSize);
};

} // namespace KVNAPI
