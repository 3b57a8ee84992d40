// Arbitrary zlib streams, and streams made of arbitrary bytes, through the parser of compressed connections,
// as messages or as bytes. Judged by inflating the same stream in one piece, and by the plain parser over
// that.
#include "FuzzCheck.h"
#include "FuzzDictionary.h"
#include "kvnparse/Deflater.h"
#include "kvnparse/ParserTestKit.h"

#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <tp/te_error.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include <zlib.h>

namespace {

using KVNAPI::bufref;
using KVNAPI::Message;
using KVNAPI::Parser;

/// Bits of the first byte of an input; two more choose the level of compression.
enum Mode : unsigned {
    RAW = 1, ///< the bytes are the compressed stream itself
    BYTES = 2,
    DAMAGE = 8,
    FLUSH_OFTEN = 64,
    FINISH = 128
};

/// What the parser's inner frames may not reach.
constexpr int INNER_BUFFER = 131072;
/// The input buffer of a connection, made small so that it fills.
constexpr std::size_t INPUT_BUFFER = 600;

std::string deflated(std::string_view plain, unsigned mode, unsigned seed) {
    constexpr int LEVELS[] = {0, 1, 6, 9};
    kvnparse_test::Deflater deflater(LEVELS[mode >> 4 & 3]);
    std::string out;
    for (const std::string_view piece : fuzz::piecesOf(plain, seed))
        out += deflater(piece, (mode & FLUSH_OFTEN) != 0 ? Z_SYNC_FLUSH : Z_NO_FLUSH);
    return out + deflater({}, (mode & FINISH) != 0 ? Z_FINISH : Z_SYNC_FLUSH);
}

struct Plain {
    std::string bytes; ///< up to the end, or to where the stream is broken
    bool isBroken = false;
};

Plain inflated(std::string_view compressed) {
    Plain plain{std::string(1100 * (compressed.size() + 1), '\0')}; // zlib makes no more of so many bytes
    z_stream stream{};
    if (inflateInit(&stream) != Z_OK)
        std::abort();
    stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(compressed.data()));
    stream.avail_in = static_cast<uInt>(compressed.size());
    stream.next_out = reinterpret_cast<Bytef*>(plain.bytes.data());
    stream.avail_out = static_cast<uInt>(plain.bytes.size());
    const int code = inflate(&stream, Z_SYNC_FLUSH);
    plain.isBroken = code == Z_DATA_ERROR || code == Z_NEED_DICT;
    plain.bytes.resize(stream.total_out);
    inflateEnd(&stream);
    return plain;
}

/// The messages in the bytes, one description each.
std::string messagesIn(std::string_view bytes) {
    const auto parser = Parser::alloc("kvn", &fuzz::dictionary(), INNER_BUFFER);
    parser->push(bufref(bytes.data(), bytes.size()));
    std::string messages;
    Message message;
    for (int result = parser->pull(&message); result != 1; result = parser->pull(&message))
        if (result == 0)
            messages += kvnparse_test::describe(message) + '\n';
    return messages;
}

/// A connection's side of the parser: feeds it pieces of the stream and takes out what there is.
class Reader {
public:
    Reader(bool wantsBytes, unsigned seed, std::size_t plainSize)
        : m_wantsBytes(wantsBytes), m_random(seed), m_pullsLeft(4 * plainSize + 100000) {}

    void read(std::string_view piece) {
        while (!piece.empty() && !isBroken && !m_isStuck) {
            const std::size_t before = content.size();
            const std::size_t taken = m_stream.push(piece);
            piece.remove_prefix(taken);
            m_wantsBytes ? takeBytes() : takeMessages();
            m_isStuck = taken == 0 && before == content.size();
        }
    }

    std::string content; ///< bytes, or messages in the form of messagesIn
    bool isBroken = false;

private:
    void takeMessages() {
        for (int result = 0; result != 1 && !isBroken;) {
            if (m_pullsLeft-- == 0)
                fuzz::expectEqual("pulls", "without end", "bounded");
            Message message;
            result = m_stream.target->pull(&message);
            if (result == 0)
                content += kvnparse_test::describe(message) + '\n';
            isBroken = result < 0 && std::string_view(tp::te_geterror()).starts_with("zlib error (");
        }
    }

    void takeBytes() {
        for (;;) {
            m_random = m_random * 1664525 + 1013904223;
            const std::size_t space = 1 + (m_random >> 8) % (2U << (m_random >> 24) % 14);
            fuzz::ExactBytes room(space);
            bufref out(room.data(), space);
            isBroken = m_stream.target->pull(&out) != 0;
            if (isBroken)
                return;
            content.append(out.view());
            if (out.len < space)
                return;
            m_stream.push({});
        }
    }

    const bool m_wantsBytes;
    bool m_isStuck = false; ///< the input is full and nothing comes of it
    std::uint32_t m_random;
    std::size_t m_pullsLeft;
    kvnparse_test::Feed<Parser> m_stream{Parser::alloc("zkvn", &fuzz::dictionary(), 0), INPUT_BUFFER};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    const unsigned seed = input.byte();
    std::string stream = (mode & RAW) != 0 ? std::string(input.rest()) : deflated(input.rest(), mode, seed);
    if ((mode & DAMAGE) != 0 && !stream.empty())
        stream[seed % stream.size()] ^= static_cast<char>(1U << seed % 8);
    const Plain plain = inflated(stream);

    Reader reader((mode & BYTES) != 0, seed, plain.bytes.size());
    for (const std::string_view piece : fuzz::piecesOf(stream, seed))
        reader.read(piece);

    fuzz::expectEqual("end", reader.isBroken ? "broken" : "sound", plain.isBroken ? "broken" : "sound");
    const std::string& ours = reader.content;
    const std::string expected = (mode & BYTES) != 0 ? plain.bytes : messagesIn(plain.bytes);
    // A broken stream may end before all of what came of it in one piece.
    if ((mode & BYTES) != 0 || plain.bytes.size() < std::size_t{INNER_BUFFER})
        fuzz::expectEqual("content", ours,
                          expected.substr(0, plain.isBroken ? ours.size() : expected.size()));
    return 0;
}
