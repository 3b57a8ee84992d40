#include "kvnparse/StreamFramer.h"

#include <tp/te_error.h>

#include <utility>

namespace KVNAPI {

StreamFramer::StreamFramer(std::unique_ptr<Framer> framer, Buffer buffer, int size) noexcept
    : m_frame(std::move(framer)), m_buf(std::move(buffer)), m_maxBufSize(size) {}

std::unique_ptr<StreamFramer> StreamFramer::alloc(const char* name, int size) {
    std::unique_ptr<Framer> framer = Framer::alloc(name, size);
    if (framer == nullptr)
        return nullptr;
    Buffer buffer(size > 0 ? static_cast<char*>(std::malloc(static_cast<std::size_t>(size))) : nullptr);
    if (buffer == nullptr) {
        tp::te_error("Error initializing buffer space StreamFrammer::alloc");
        return nullptr;
    }
    return std::make_unique<StreamFramer>(std::move(framer), std::move(buffer), size);
}

int StreamFramer::push(const tp::ByteStream& stream) {
    m_read = m_frame->moveRemaining(bufref(m_buf.get(), static_cast<bufref_len_t>(m_maxBufSize)));
    const std::int32_t room = m_maxBufSize - m_read;
    if (room == 0)
        return 1;
    const ssize_t count = stream.read(m_buf.get() + m_read, static_cast<std::size_t>(room));
    if (count <= 0)
        return static_cast<int>(count);
    m_read += static_cast<std::int32_t>(count);
    m_frame->push(bufref(m_buf.get(), static_cast<bufref_len_t>(m_read)));
    return static_cast<int>(count);
}

void StreamFramer::reset() {
    m_read = 0;
    m_frame->reset();
}

} // namespace KVNAPI
