// Arbitrary bytes in arbitrary pieces through the receive ring, anywhere around its end, with a consumer that
// lags behind by an arbitrary number of frames; judged by a scan of the same bytes in one piece.
#include "FuzzCheck.h"
#include "kvnparse/ParserTestKit.h"

#include "receive/FrameHandler.h"
#include "receive/Queue.h"

#include <algorithm>
#include <string>

namespace {

using tivra_internal::FrameHandler;
using tivra_internal::Queue;

constexpr std::size_t RING = 1U << 20;
constexpr std::size_t HEADER = 6;
constexpr std::size_t MAX_BODY = 262144;

/// Writes down what it is given.
class Listing : public FrameHandler {
public:
    unsigned process_kvn_buffer(char* buf, unsigned long len, uint64_t*) override {
        if (listens)
            frames.append(buf, len).append("\n");
        return 0;
    }
    void reset() override {}

    bool listens = false;
    std::string frames;
};

std::size_t bodyLength(std::string_view frame) {
    std::size_t length = 0;
    for (std::size_t i = 2; i < HEADER; ++i)
        length = length << 8 | static_cast<unsigned char>(frame[i]);
    return length;
}

/// The frames of a stream, by the ring's rules.
std::string scan(std::string_view stream) {
    std::string frames;
    for (;;) {
        stream.remove_prefix(std::min(stream.find('\x04'), stream.size()));
        if (stream.size() < HEADER)
            return frames;
        const std::size_t length = bodyLength(stream);
        if (length <= MAX_BODY && length + HEADER >= stream.size())
            return frames;
        if (length > MAX_BODY || stream[HEADER + length] != '\x03') {
            stream.remove_prefix(1);
            continue;
        }
        frames.append(stream.substr(0, HEADER + length + 1)).append("\n");
        stream.remove_prefix(HEADER + length + 1);
    }
}

void popAll(Queue& queue) {
    while (!queue.isEmpty())
        queue.PopElement();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    std::size_t distance = input.byte();
    distance += 256 * std::size_t{input.byte() % 4};
    const unsigned seed = input.byte();
    const unsigned lag = input.byte();
    const std::string_view stream = input.rest().substr(0, RING / 4);

    // Made once: a run is short, and a megabyte is much to allocate.
    static Queue queue(1, false, nullptr, 70);
    Listing listing;
    queue.setQueueHandler(&listing);
    queue.reset();
    std::size_t position = 0;
    // Reads of a socket stop at the ring's end.
    const auto feed = [&position](std::string_view bytes) {
        while (!bytes.empty()) {
            const std::string_view part = bytes.substr(0, RING - position);
            fuzz::expectEqual("room", queue.takeOver({part.data(), part.size()}) ? "none" : "enough",
                              "enough");
            position = (position + part.size()) % RING;
            bytes.remove_prefix(part.size());
        }
    };
    // Frames of no interest take the ring to the place where the stream begins.
    for (std::size_t left = RING - distance; left > 0;) {
        const std::size_t part = left <= MAX_BODY ? left : MAX_BODY / 2;
        feed(kvnparse_test::frameOf(std::string(part - HEADER - 1, 'f')));
        popAll(queue);
        left -= part;
    }

    listing.listens = true;
    unsigned turn = 0;
    for (const std::string_view piece : fuzz::piecesOf(stream, seed)) {
        feed(piece);
        for (unsigned pops = lag == 0 ? ~0U : ++turn * 7 % lag; pops > 0 && !queue.isEmpty(); --pops)
            queue.PopElement();
    }
    popAll(queue);
    queue.setQueueHandler(nullptr);
    fuzz::expectEqual("frames", listing.frames, scan(stream));
    return 0;
}
