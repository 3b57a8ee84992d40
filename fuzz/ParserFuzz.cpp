// Arbitrary bodies in well-formed frames through every form of the body parser, and arbitrary streams through
// the parsers of both names, judged against the reference parser and the reference framer.
#include "FuzzCheck.h"
#include "FuzzDictionary.h"
#include "ReferenceFramer.h"
#include "ReferenceParser.h"

#include "kvnparse/BodyParser.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <tp/te_error.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using KVNAPI::bufref;
using KVNAPI::Message;
using kvnparse_test::ReferenceFramer;

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

fuzz::Map& dictionary() {
    static fuzz::Map map;
    static const bool filled = map.fill();
    if (!filled)
        std::abort();
    return map;
}

fuzz::ParserOptions optionsOf(unsigned mode) {
    const bool lines = (mode & LINES) != 0;
    fuzz::ParserOptions options;
    options.names = lines != ((mode & OTHER_NAMES) != 0);
    options.headerSize = lines != ((mode & OTHER_HEADER) != 0) ? 0 : 6;
    options.terminator = lines != ((mode & OTHER_TERMINATOR) != 0) ? '\n' : '\3';
    options.intoHeader = (mode & NOT_INTO_HEADER) == 0;
    options.partCodeInHeader = (mode & NO_PART_CODE) == 0;
    options.excludeSymbol = (mode & EXCLUDE_SYMBOL) != 0;
    return options;
}

template<class Target>
void setOptions(Target& target, const fuzz::ParserOptions& options) {
    const auto set = [&target](const char* name, int value) {
        if (target.setOption(name, std::to_string(value).c_str()) != 0)
            std::abort();
    };
    set("AllowVerboseToken", options.names);
    set("HasKVNHeader", options.headerSize != 0);
    set("SetEOL", options.terminator);
    set("ParseIntoHeader", options.intoHeader);
    set("PartCodeInHeader", options.partCodeInHeader);
    set("DoNotParseSymbolIntoHeader", options.excludeSymbol);
}

/// The first line of a refusal without the byte that it shows, which may be the end of the frame.
std::string refusal() {
    std::string text = "refused: ";
    text += tp::te_geterror();
    const std::size_t shown = text.find('(');
    const std::size_t reason = text.find("): ", shown);
    if (shown == std::string::npos || reason == std::string::npos)
        return text;
    const std::size_t end = text.find('\n', reason);
    return text.substr(0, shown) + text.substr(reason + 1, end - reason - 1);
}

std::string frameOf(std::string_view body, bool lines) {
    if (lines)
        return std::string(body) + '\n';
    std::string frame = "\x04 ";
    for (const unsigned shift : {24u, 16u, 8u, 0u})
        frame += static_cast<char>(body.size() >> shift & 0xff);
    return frame.append(body) + '\x03';
}

/// One frame through one form of the body parser.
void checkFrame(KVNAPI::KVNParse& parse, const KVNAPI::BodyParserForm& form, std::string_view frame,
                const std::string& expected) {
    Message copy;
    std::string ours;
    {
        auto bytes = std::make_unique<fuzz::ExactBytes>(frame);
        Message message;
        if (parse.parseWith(form.parse, bufref(bytes->data(), bytes->size()), &message) != 0) {
            fuzz::expectEqual(form.name, refusal(), expected);
            return;
        }
        ours = fuzz::describe(message);
        fuzz::expectEqual(form.name, ours, expected);
        copy.deepCopy(&message);
    }
    // Neither the frame nor the message that it was made from is there any longer.
    fuzz::expectEqual("copy", fuzz::withoutFlags(fuzz::describe(copy)), fuzz::withoutFlags(ours));
}

/// Bodies that are separated by zeros, through each form: a parser learns from the messages before.
void checkBodies(std::string_view bodies, unsigned mode) {
    const fuzz::ParserOptions options = optionsOf(mode);
    std::vector<std::string> frames;
    std::vector<std::string> expected;
    for (bool more = true; more;) {
        const std::size_t end = bodies.find('\0');
        more = end != std::string_view::npos;
        frames.push_back(frameOf(bodies.substr(0, end), (mode & LINES) != 0));
        expected.push_back(fuzz::referenceParse(frames.back(), options));
        bodies.remove_prefix(more ? end + 1 : bodies.size());
    }
    for (const KVNAPI::BodyParserForm* form = KVNAPI::BODY_PARSER_FORMS; form->name != nullptr; ++form) {
        if (!form->runsHere())
            continue;
        KVNAPI::KVNParse parse;
        if (parse.setMetaMap(&dictionary()) != 0)
            std::abort();
        setOptions(parse, options);
        for (std::size_t i = 0; i < frames.size(); ++i)
            checkFrame(parse, *form, frames[i], expected[i]);
    }
}

void checkStream(std::string_view stream, unsigned mode, unsigned seed) {
    constexpr std::size_t BUFFER_SIZE = 512;
    const bool lines = (mode & LINES) != 0;
    const fuzz::ParserOptions options = optionsOf(mode);
    const auto parser =
        KVNAPI::Parser::alloc(lines ? "vkvn" : "kvn", &dictionary(), static_cast<int>(BUFFER_SIZE));
    if (parser == nullptr)
        std::abort();
    setOptions(*parser, options);
    ReferenceFramer framer(lines ? ReferenceFramer::LINES : ReferenceFramer::TOKENS, BUFFER_SIZE);
    fuzz::ExactBytes buffer(BUFFER_SIZE);
    Message message;
    for (std::string_view piece : fuzz::piecesOf(stream, seed)) {
        while (!piece.empty()) {
            const int held = parser->moveRemaining(bufref(buffer.data(), buffer.size()));
            fuzz::expectEqual("bytes kept", std::to_string(held), std::to_string(framer.held()));
            const std::string_view part = piece.substr(0, BUFFER_SIZE - framer.held());
            piece.remove_prefix(part.size());
            part.copy(buffer.data() + framer.held(), part.size());
            framer.feed(part);
            parser->push(bufref(buffer.data(), framer.held()));
            for (;;) {
                const ReferenceFramer::Step step = framer.pull();
                const int result = parser->pull(&message);
                if (step.result == 0) {
                    fuzz::expectEqual("frame", result == 0 ? fuzz::describe(message) : refusal(),
                                      fuzz::referenceParse(step.content, options));
                    fuzz::expectEqual("length", std::to_string(parser->msglen()),
                                      std::to_string(result == 0 ? step.content.size() : 0));
                    continue;
                }
                fuzz::expectEqual("framing", std::to_string(result), std::to_string(step.result));
                if (step.result == 1)
                    break;
                fuzz::expectEqual("framing text", tp::te_geterror(), step.content);
            }
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    if ((mode & STREAM) != 0) {
        const unsigned seed = input.byte();
        checkStream(input.rest(), mode, seed);
    } else {
        checkBodies(input.rest(), mode);
    }
    return 0;
}
