#pragma once

#include "kvnparse/Parser.h"

#include <cstddef>
#include <cstdint>
#include <memory>

#include <tp/ByteStream.h>

namespace KVNAPI {

/// A parser with the buffer that a socket is read into. Owns both; used by one thread.
class StreamParser {
public:
    StreamParser(const StreamParser&) = delete;
    StreamParser& operator=(const StreamParser&) = delete;

    /// A parser of that name over a buffer of `size` bytes; null with a text in te_geterror.
    [[nodiscard]] static std::unique_ptr<StreamParser> alloc(const char* name, DataMap* map, int size);

    /// One read. Stores the room that it had through `count` unless that is null. Returns the bytes read, or
    /// the result of a read that brought none with `errno` as the read left it; frames of earlier reads can
    /// still be pulled then. Returns 1 without a read when the buffer is full, so that the next pull says
    /// why.
    [[nodiscard]] std::int64_t push(const tp::ByteStream& stream, std::size_t* count);

    [[nodiscard]] int setMetaMap(DataMap* map) { return parser_->setMetaMap(map); }
    [[nodiscard]] int setOption(const char* name, const char* value) {
        return parser_->setOption(name, value);
    }
    [[nodiscard]] int optionParser(const char* text) { return parser_->optionParser(text); }
    [[nodiscard]] int pull(Message* message) { return parser_->pull(message); }
    [[nodiscard]] int pull(bufref* out) { return parser_->pull(out); }
    [[nodiscard]] unsigned int msglen() const { return parser_->msglen(); }
    void reset() {
        read_ = 0;
        parser_->reset();
    }

private:
    StreamParser(std::unique_ptr<Parser> parser, std::unique_ptr<char[]> buffer, int size) noexcept
        : maxBufferSize_(size), parser_(std::move(parser)), buf_(std::move(buffer)) {}

    std::int32_t maxBufferSize_;
    std::unique_ptr<Parser> parser_;
    std::int32_t read_ = 0; ///< bytes held in `buf_`
    std::unique_ptr<char[]> buf_;
};

} // namespace KVNAPI
