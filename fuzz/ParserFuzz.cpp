// Arbitrary bodies in well-formed frames through every form of the body parser, judged by the plain form,
// whose results ParserTest holds in tables. Arbitrary streams through the parsers of both names, judged by a
// framer and the plain form.
#include "FuzzCheck.h"
#include "FuzzDictionary.h"
#include "kvnparse/ParserTestKit.h"

#include "kvnparse/BodyParser.h"
#include "kvnparse/Framer.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <tp/te_error.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace KVNAPI;
using kvnparse_test::describe;
using kvnparse_test::Feed;
using kvnparse_test::GuardedBytes;

constexpr std::size_t MOST_BYTES = 65536;

/// Bits of the first byte of an input.
enum Mode : unsigned {
    LINES = 1,
    STREAM = 2,
    NOT_INTO_HEADER = 4,
    NO_PART_CODE = 8,
    EXCLUDE_SYMBOL = 16,
    OTHER_NAMES = 32,
    OTHER_HEADER = 64,
    OTHER_TERMINATOR = 128
};

template<class Target>
void setOptions(Target& target, unsigned mode) {
    const bool lines = (mode & LINES) != 0;
    const auto set = [&target](const char* name, int value) {
        if (target.setOption(name, std::to_string(value).c_str()) != 0)
            std::abort();
    };
    set("AllowVerboseToken", lines != ((mode & OTHER_NAMES) != 0));
    set("HasKVNHeader", lines == ((mode & OTHER_HEADER) != 0));
    set("SetEOL", lines != ((mode & OTHER_TERMINATOR) != 0) ? '\n' : '\3');
    set("ParseIntoHeader", (mode & NOT_INTO_HEADER) == 0);
    set("PartCodeInHeader", (mode & NO_PART_CODE) == 0);
    set("DoNotParseSymbolIntoHeader", (mode & EXCLUDE_SYMBOL) != 0);
}

void bind(KVNParse& parse, unsigned mode) {
    if (parse.setMetaMap(&fuzz::dictionary()) != 0)
        std::abort();
    setOptions(parse, mode);
}

/// What a form makes of a frame. A copy of the message outlives that and the bytes.
std::string outcome(KVNParse& parse, BodyParser form, std::string_view frame, GuardedBytes::Side side) {
    static GuardedBytes memory(MOST_BYTES);
    Message copy;
    std::string whole;
    {
        Message message;
        if (parse.parseWith(form, memory.place(frame, side), &message) != 0)
            return std::string("refused: ") + tp::te_geterror();
        // First, for describing the message decodes it.
        copy.deepCopy(&message);
        whole = describe(message);
        copy.isRetCodePresent = message.isRetCodePresent;
        copy.isTagPresent = message.isTagPresent;
        copy.isAltIndexPresent = message.isAltIndexPresent;
        static_cast<void>(memory.place(std::string(frame.size(), '?'), side));
    }
    fuzz::expectEqual("copy", describe(copy), whole);
    return whole;
}

/// Bodies that are separated by zeros, through each form: a parser learns from the messages before.
void checkBodies(std::string_view bodies, unsigned mode) {
    std::vector<std::string> frames;
    for (bool more = true; more;) {
        const std::string_view body = bodies.substr(0, bodies.find('\0'));
        more = body.size() < bodies.size();
        bodies.remove_prefix(body.size() + (more ? 1 : 0));
        frames.push_back((mode & LINES) != 0 ? std::string(body) + '\n' : kvnparse_test::frameOf(body));
    }
    for (const BodyParserForm& form : kvnparse_test::formsHere()) {
        KVNParse parse, plain;
        bind(parse, mode);
        bind(plain, mode);
        for (const bool inFrame : {false, true}) {
            parse.setTextsInFrame(inFrame);
            for (const std::string& frame : frames)
                for (const auto side : {GuardedBytes::END_AT_GUARD, GuardedBytes::START_AT_GUARD})
                    fuzz::expectEqual(form.name, outcome(parse, form.parse, frame, side),
                                      outcome(plain, parseBodyScalar, frame, side));
        }
    }
}

std::string textOf(int result, const Message& message) {
    return std::to_string(result) + ' ' +
           (result == 0  ? describe(message)
            : result < 0 ? tp::te_geterror()
                         : "");
}

void checkStream(std::string_view stream, unsigned mode, unsigned seed) {
    const bool lines = (mode & LINES) != 0;
    Feed<Parser> parser(Parser::alloc(lines ? "vkvn" : "kvn", &fuzz::dictionary(), 512), 512);
    Feed<Framer> framer(Framer::alloc(lines ? "newline" : "kvn", 512), 512);
    setOptions(*parser.target, mode);
    KVNParse plain;
    bind(plain, mode);
    for (const std::string_view piece : fuzz::piecesOf(stream, seed)) {
        framer.push(piece); // what finds no room is lost
        parser.push(piece);
        fuzz::expectEqual("bytes held", std::to_string(parser.held), std::to_string(framer.held));
        for (int expected = 0; expected != 1;) {
            bufref frame;
            Message message;
            expected = framer.target->pull(&frame);
            if (expected == 0)
                expected = plain.parseWith(parseBodyScalar, frame, &message);
            const std::string text = textOf(expected, message);
            const int result = parser.target->pull(&message);
            fuzz::expectEqual("result", textOf(result, message), text);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    if (size > MOST_BYTES / 2)
        return 0;
    if ((mode & STREAM) != 0) {
        const unsigned seed = input.byte();
        checkStream(input.rest(), mode, seed);
    } else {
        checkBodies(input.rest(), mode);
    }
    return 0;
}
