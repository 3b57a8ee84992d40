// Arbitrary zlib streams, and streams made of arbitrary bytes, through the parser of compressed connections:
// as messages, as bytes, and with a change from the one to the other. Judged by inflating the same stream in
// one piece, and by the reference framer and parser over what that gives.
#include "FuzzCheck.h"
#include "FuzzDictionary.h"
#include "ReferenceFramer.h"
#include "ReferenceParser.h"

#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <tp/te_error.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include <zlib.h>

namespace {

using KVNAPI::bufref;
using KVNAPI::Message;
using kvnparse_test::ReferenceFramer;

/// Bits of the first byte of an input; two more choose the level of compression.
enum Mode : unsigned {
    RAW = 1, ///< the bytes are the compressed stream itself
    BYTES = 2,
    CHANGE = 4, ///< to bytes behind the second message
    DAMAGE = 8,
    FLUSH_OFTEN = 64,
    FINISH = 128
};

/// What the parser's inner frames may not reach.
constexpr std::size_t INNER_BUFFER = 131072;
/// The input buffer of a connection, made small so that it fills.
constexpr std::size_t INPUT_BUFFER = 600;

fuzz::Map& dictionary() {
    static fuzz::Map map;
    static const bool filled = map.fill();
    if (!filled)
        std::abort();
    return map;
}

Bytef* asBytes(const char* text) {
    return const_cast<Bytef*>(reinterpret_cast<const Bytef*>(text));
}

std::string deflated(std::string_view plain, unsigned mode, unsigned seed) {
    constexpr int LEVELS[] = {0, 1, 6, 9};
    z_stream stream{};
    if (deflateInit(&stream, LEVELS[mode >> 4 & 3]) != Z_OK)
        std::abort();
    std::string out;
    const auto add = [&](std::string_view bytes, int flush) {
        stream.next_in = asBytes(bytes.data());
        stream.avail_in = static_cast<uInt>(bytes.size());
        char block[4096];
        do {
            stream.next_out = reinterpret_cast<Bytef*>(block);
            stream.avail_out = sizeof block;
            deflate(&stream, flush);
            out.append(block, sizeof block - stream.avail_out);
        } while (stream.avail_out == 0);
    };
    for (const std::string_view piece : fuzz::piecesOf(plain, seed))
        add(piece, (mode & FLUSH_OFTEN) != 0 ? Z_SYNC_FLUSH : Z_NO_FLUSH);
    add({}, (mode & FINISH) != 0 ? Z_FINISH : Z_SYNC_FLUSH);
    deflateEnd(&stream);
    return out;
}

struct Plain {
    std::string bytes; ///< up to the end, or to where the stream is broken
    bool isBroken = false;
};

Plain inflated(std::string_view compressed) {
    z_stream stream{};
    if (inflateInit(&stream) != Z_OK)
        std::abort();
    stream.next_in = asBytes(compressed.data());
    stream.avail_in = static_cast<uInt>(compressed.size());
    Plain plain;
    int code = Z_OK;
    char block[65536];
    do {
        stream.next_out = reinterpret_cast<Bytef*>(block);
        stream.avail_out = sizeof block;
        code = inflate(&stream, Z_NO_FLUSH);
        plain.bytes.append(block, sizeof block - stream.avail_out);
    } while (code == Z_OK && stream.avail_out == 0);
    plain.isBroken = code == Z_DATA_ERROR || code == Z_NEED_DICT;
    inflateEnd(&stream);
    return plain;
}

/// The messages in the bytes, one description each.
std::string messagesIn(std::string_view bytes) {
    ReferenceFramer framer(ReferenceFramer::TOKENS, INNER_BUFFER);
    framer.feed(bytes);
    std::string messages;
    for (ReferenceFramer::Step step = framer.pull(); step.result != 1; step = framer.pull()) {
        if (step.result != 0)
            continue;
        const std::string message = fuzz::referenceParse(step.content, {});
        if (message.rfind("refused: ", 0) != 0)
            messages += message;
    }
    return messages;
}

/// A connection's side of the parser: feeds it pieces of the stream and takes out what there is.
class Reader {
public:
    Reader(unsigned mode, unsigned seed, std::size_t plainSize)
        : m_mode(mode), m_random(seed), m_pullsLeft(4 * plainSize + 100000) {
        if (m_parser == nullptr)
            std::abort();
    }

    void read(std::string_view piece) {
        while (!piece.empty() && !isBroken && !isStuck) {
            const std::size_t before = bytes.size() + messages.size();
            const std::size_t taken = push(piece);
            piece.remove_prefix(taken);
            takeOut();
            isStuck = taken == 0 && before == bytes.size() + messages.size();
        }
    }

    std::string messages;
    std::string bytes;
    bool isBroken = false;
    bool isStuck = false; ///< the input is full and nothing comes of it

private:
    std::size_t push(std::string_view piece) {
        const auto held =
            static_cast<std::size_t>(m_parser->moveRemaining(bufref(m_input.data(), INPUT_BUFFER)));
        const std::string_view part = piece.substr(0, INPUT_BUFFER - held);
        part.copy(m_input.data() + held, part.size());
        m_parser->push(bufref(m_input.data(), held + part.size()));
        return part.size();
    }

    [[nodiscard]] bool wantsBytes() const {
        return (m_mode & BYTES) != 0 || ((m_mode & CHANGE) != 0 && m_count >= 2);
    }

    void takeOut() {
        int result = 0;
        while (!wantsBytes() && result != 1 && !isBroken)
            result = takeMessage();
        if (wantsBytes() && !isBroken)
            takeBytes();
    }

    int takeMessage() {
        if (m_pullsLeft-- == 0)
            fuzz::expectEqual("pulls", "without end", "bounded");
        Message message;
        const int result = m_parser->pull(&message);
        if (result == 0) {
            messages += fuzz::describe(message);
            ++m_count;
        }
        isBroken = result < 0 && std::string_view(tp::te_geterror()).rfind("zlib error (", 0) == 0;
        return result;
    }

    void takeBytes() {
        for (;;) {
            m_random = m_random * 1664525 + 1013904223;
            const std::size_t space = 1 + (m_random >> 8) % (2U << (m_random >> 24) % 14);
            fuzz::ExactBytes room(space);
            bufref out(room.data(), space);
            isBroken = m_parser->pull(&out) != 0;
            if (isBroken)
                return;
            bytes.append(out.view());
            if (out.len < space)
                return;
            push({});
        }
    }

    const unsigned m_mode;
    std::uint32_t m_random;
    std::size_t m_pullsLeft;
    std::size_t m_count = 0;
    fuzz::ExactBytes m_input{INPUT_BUFFER};
    std::unique_ptr<KVNAPI::Parser> m_parser = KVNAPI::Parser::alloc("zkvn", &dictionary(), 0);
};

void expectPrefix(std::string_view what, std::string_view ours, std::string_view reference, bool isWhole) {
    fuzz::expectEqual(what, ours, isWhole ? reference : reference.substr(0, ours.size()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    const unsigned seed = input.byte();
    std::string stream = (mode & RAW) != 0 ? std::string(input.rest()) : deflated(input.rest(), mode, seed);
    if ((mode & DAMAGE) != 0 && !stream.empty())
        stream[seed % stream.size()] ^= static_cast<char>(1U << seed % 8);
    const Plain plain = inflated(stream);

    Reader reader(mode, seed, plain.bytes.size());
    for (const std::string_view piece : fuzz::piecesOf(stream, seed))
        reader.read(piece);

    fuzz::expectEqual("end", reader.isBroken ? "broken" : "sound", plain.isBroken ? "broken" : "sound");
    if ((mode & BYTES) != 0)
        expectPrefix("bytes", reader.bytes, plain.bytes, !plain.isBroken);
    else if (!reader.bytes.empty() && !plain.isBroken)
        // What the messages have used up or left with the inner parser is gone; nothing comes twice.
        fuzz::expectEqual(
            "bytes behind messages", reader.bytes,
            std::string_view(plain.bytes)
                .substr(plain.bytes.size() - std::min(plain.bytes.size(), reader.bytes.size())));
    else if ((mode & CHANGE) == 0 && plain.bytes.size() < INNER_BUFFER)
        expectPrefix("messages", reader.messages, messagesIn(plain.bytes), !plain.isBroken);
    return 0;
}
