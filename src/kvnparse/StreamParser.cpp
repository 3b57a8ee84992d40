#include "kvnparse/StreamParser.h"

#include <tp/eprintf.h>
#include <tp/te_error.h>

#include <new>
#include <utility>

namespace KVNAPI {

std::unique_ptr<StreamParser> StreamParser::alloc(const char* name, DataMap* map, int size) {
    std::unique_ptr<Parser> parser = Parser::alloc(name, map, size);
    if (parser == nullptr)
        return nullptr;
    std::unique_ptr<char[]> buffer(size > 0 ? new (std::nothrow) char[static_cast<std::size_t>(size)]
                                            : nullptr);
    if (buffer == nullptr) {
        tp::te_error("Error initializing buf_ space StreamFrammer::alloc");
        return nullptr;
    }
    return std::unique_ptr<StreamParser>(new StreamParser(std::move(parser), std::move(buffer), size));
}

std::int64_t StreamParser::push(const tp::ByteStream& stream, std::size_t* count) {
    read_ = parser_->moveRemaining(bufref(buf_.get(), static_cast<bufref_len_t>(maxBufferSize_)));
    const auto room = static_cast<std::size_t>(maxBufferSize_ - read_);
    if (count != nullptr)
        *count = room;
    // A read of no bytes would look like the end of the stream.
    const std::int64_t result = room > 0 ? stream.read(buf_.get() + read_, room) : 1;
    if (result < 1)
        eprintf(EPF_DBUG, "(fd=%d): read/recv failed with ret=%ld; count=%zu", stream.fd(),
                static_cast<long>(result), room);
    else if (room > 0)
        read_ += static_cast<std::int32_t>(result);
    parser_->push(bufref(buf_.get(), static_cast<bufref_len_t>(read_)));
    return result;
}

} // namespace KVNAPI
