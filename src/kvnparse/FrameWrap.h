#pragma once

#include "kvnparse/Framer.h"
#include "kvnparse/Parser.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace KVNAPI {

/// Couples a parser of bodies to a framer, which it owns, and to the verifier of the same frames: the class
/// behind the parser names "kvn" and "vkvn".
template<class Parse, class Verify>
class FrameWrap final : public Parser {
public:
    FrameWrap(const char* framerName, int maxBufferSize)
        : m_frame(Framer::alloc(framerName, maxBufferSize)) {}

    [[nodiscard]] int setMetaMap(DataMap* map) override { return m_parser.setMetaMap(map); }
    [[nodiscard]] int setOption(const char* name, const char* value) override {
        return m_parser.setOption(name, value);
    }
    void push(bufref bytes) override { m_frame->push(bytes); }
    [[nodiscard]] int moveRemaining(bufref dst) override { return m_frame->moveRemaining(dst); }

    [[nodiscard]] int pull(Message* message) override {
        bufref frame;
        if (const int result = m_frame->pull(&frame); result != 0)
            return result;
        return parseWhole(frame, message);
    }

    [[nodiscard]] int parseFrame(bufref frame, Message* message) override {
        const std::ptrdiff_t length = m_verify.verifyFrame(frame.buf, frame.end());
        if (length <= 0 || static_cast<bufref_len_t>(length) != frame.len)
            return 1;
        return parseWhole(frame, message);
    }

    [[nodiscard]] int pull(bufref*) override { return -1; }
    void reset() override { m_frame->reset(); }
    [[nodiscard]] unsigned int msglen() const override { return static_cast<unsigned int>(m_msglen); }
    void setTextsInFrame(bool inFrame) override { m_parser.setTextsInFrame(inFrame); }
    void setLazyValues(bool lazy) override { m_parser.setLazyValues(lazy); }

private:
    [[nodiscard]] int parseWhole(bufref frame, Message* message) {
        if (m_parser.parse(frame, message) != 0) {
            m_msglen = 0;
            return -1;
        }
        m_msglen = static_cast<std::int32_t>(frame.len);
        return 0;
    }

    const Verify m_verify{};
    std::unique_ptr<Framer> m_frame;
    Parse m_parser;
    std::int32_t m_msglen = 0;
};

} // namespace KVNAPI
