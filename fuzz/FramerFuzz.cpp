// Arbitrary bytes in arbitrary pieces through both framers, judged step by step against the reference framer.
#include "FuzzCheck.h"
#include "ReferenceFramer.h"

#include "kvnparse/Framer.h"

#include <tp/te_error.h>

#include <memory>
#include <string>

namespace {

using KVNAPI::bufref;
using kvnparse_test::ReferenceFramer;

std::string textOf(const ReferenceFramer::Step& step) {
    return std::to_string(step.result) + ' ' + step.content;
}

std::string pull(KVNAPI::Framer& framer) {
    bufref frame;
    const int result = framer.pull(&frame);
    if (result == 0)
        return textOf({0, std::string(frame.view())});
    return textOf({result, result < 0 ? tp::te_geterror() : ""});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t SIZES[] = {8, 64, 512, 65536};
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    const bool lines = (mode & 1) != 0;
    const std::size_t bufferSize = SIZES[mode >> 1 & 3];
    const unsigned seed = input.byte();

    const auto framer = KVNAPI::Framer::alloc(lines ? "newline" : "kvn", static_cast<int>(bufferSize));
    ReferenceFramer reference(lines ? ReferenceFramer::LINES : ReferenceFramer::TOKENS, bufferSize);
    auto buffer = std::make_unique<fuzz::ExactBytes>(0);
    for (std::string_view piece : fuzz::piecesOf(input.rest(), seed)) {
        while (!piece.empty()) {
            const std::size_t held = reference.held();
            const std::string_view part = piece.substr(0, bufferSize - held);
            piece.remove_prefix(part.size());
            // A new block of the exact size each time; the old one goes once its bytes have moved.
            auto next = std::make_unique<fuzz::ExactBytes>(held + part.size());
            const int moved = framer->moveRemaining(bufref(next->data(), next->size()));
            fuzz::expectEqual("bytes kept", std::to_string(moved), std::to_string(held));
            part.copy(next->data() + held, part.size());
            framer->push(bufref(next->data(), next->size()));
            buffer = std::move(next);
            reference.feed(part);
            ReferenceFramer::Step expected;
            do {
                expected = reference.pull();
                fuzz::expectEqual("step", pull(*framer), textOf(expected));
            } while (expected.result != 1);
        }
    }
    return 0;
}
