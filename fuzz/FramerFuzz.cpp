// Arbitrary bytes in arbitrary pieces through both framers. Each byte must come in a frame or be reported as
// skipped, in its order; no whole frame may be skipped, and none may be waited for once it is there.
#include "FuzzCheck.h"
#include "kvnparse/ParserTestKit.h"

#include "kvnparse/Framer.h"

#include <tp/te_error.h>

#include <cstdio>
#include <string>

namespace {

using KVNAPI::bufref;

/// The length of the whole frame that begins the bytes, 0 when none does.
std::size_t frameLength(std::string_view bytes, bool lines) {
    if (lines)
        return bytes.find('\n') + 1;
    if (bytes.size() < 7 || bytes.substr(0, 2) != "\x04 ")
        return 0;
    std::size_t length = 7;
    for (std::size_t i = 2; i < 6; ++i)
        length += std::size_t{static_cast<unsigned char>(bytes[i])} << (40 - 8 * i);
    return length <= bytes.size() && bytes[length - 1] == '\x03' ? length : 0;
}

void expect(bool isTrue, const char* what) {
    if (!isTrue)
        fuzz::expectEqual(what, "false", "true");
}

/// One stream and how much of it has been used up.
class Ledger {
public:
    Ledger(bool lines, std::size_t bufferSize) : m_lines(lines), m_bufferSize(bufferSize) {}

    void feed(std::string_view bytes) { m_stream.append(bytes); }
    [[nodiscard]] std::size_t held() const { return m_stream.size() - m_at; }

    void drain(KVNAPI::Framer& framer) {
        bufref frame;
        int idle = 0;
        for (int result = framer.pull(&frame); result != 1; result = framer.pull(&frame)) {
            const std::size_t before = m_at;
            if (result == 0)
                take(frame.view());
            else
                skip(tp::te_geterror());
            idle = m_at == before ? idle + 1 : 0;
            expect(idle < 4, "pulls come to something");
        }
        expect(frameLength(rest(), m_lines) == 0, "no whole frame is held back");
    }

private:
    [[nodiscard]] std::string_view rest() const { return std::string_view(m_stream).substr(m_at); }

    void take(std::string_view frame) {
        fuzz::expectEqual("frame", frame, rest().substr(0, frameLength(rest(), m_lines)));
        m_at += frame.size();
    }

    void skip(const char* error) {
        std::size_t count = 0;
        if (std::sscanf(error, "Skipping %zu bytes", &count) != 1)
            return; // what is wrong; the skipping follows
        expect(count <= held(), "only bytes that are there are skipped");
        for (; count > 0; --count, ++m_at) {
            const std::size_t length = frameLength(rest(), m_lines);
            expect(length == 0 || length > m_bufferSize, "no whole frame is skipped");
        }
    }

    bool m_lines;
    std::size_t m_bufferSize;
    std::string m_stream;
    std::size_t m_at = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t SIZES[] = {8, 64, 512, 65536};
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    const bool lines = (mode & 1) != 0;
    const std::size_t bufferSize = SIZES[mode >> 1 & 3];
    const unsigned seed = input.byte();

    kvnparse_test::Feed<KVNAPI::Framer> reader(
        KVNAPI::Framer::alloc(lines ? "newline" : "kvn", static_cast<int>(bufferSize)), bufferSize);
    Ledger ledger(lines, bufferSize);
    for (std::string_view piece : fuzz::piecesOf(input.rest(), seed)) {
        while (!piece.empty()) {
            const std::string held = std::to_string(ledger.held());
            const std::size_t taken = reader.push(piece);
            fuzz::expectEqual("bytes kept", std::to_string(reader.held), held);
            ledger.feed(piece.substr(0, taken));
            piece.remove_prefix(taken);
            ledger.drain(*reader.target);
        }
    }
    return 0;
}
