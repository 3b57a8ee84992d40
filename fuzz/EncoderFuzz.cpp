// The messages of arbitrary bodies through both encoders, into rooms of arbitrary sizes, which change nothing
// but whether there is a result. What the framed form holds is read and written once more.
#include "FuzzCheck.h"
#include "FuzzDictionary.h"
#include "kvnparse/ParserTestKit.h"

#include "kvnparse/Encoder.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

#include <tp/te_error.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace {

using namespace KVNAPI;
using kvnparse_test::encoded;

/// Bits of the first byte of an input.
enum Mode : unsigned { NO_HEADER = 1, OTHER_END = 2, ADD_PERMISSION = 4, SUPPRESS = 8 };

constexpr std::size_t MUCH_ROOM = 262144;

/// Twice with each room: the encoder has the dates' texts the second time.
std::string checkRooms(Encoder& encoder, const Message& message, std::size_t room) {
    const std::string whole = encoded(encoder, message, MUCH_ROOM);
    for (const std::size_t space : {room, MUCH_ROOM, room}) {
        const std::string some = encoded(encoder, message, space);
        if (space == MUCH_ROOM || some != "Not enough space for message.")
            fuzz::expectEqual("with another room", some, whole);
    }
    return whole;
}

std::unique_ptr<Encoder> framedEncoder(unsigned mode) {
    auto encoder = Encoder::alloc("kvn", &fuzz::dictionary());
    std::string options = "AppendHeader=" + std::string((mode & NO_HEADER) != 0 ? "0" : "1");
    if ((mode & OTHER_END) != 0)
        options += ",SetEOL=10";
    if ((mode & ADD_PERMISSION) != 0)
        options += ",AddPermToken=1";
    if ((mode & SUPPRESS) != 0)
        options += ",SuppressToken=11";
    if (encoder == nullptr || encoder->optionParser(options.c_str()) != 0)
        std::abort();
    return encoder;
}

bool read(Message& message, const std::string& frame) {
    static const auto parser = Parser::alloc("kvn", &fuzz::dictionary(), 65536);
    parser->reset();
    parser->push(bufref(frame.data(), frame.size()));
    return parser->pull(&message) == 0;
}

std::string writtenAgain(Encoder& encoder, const std::string& frame) {
    Message message;
    if (!read(message, frame))
        fuzz::expectEqual("a frame that was written", tp::te_geterror(), frame);
    return encoded(encoder, message, MUCH_ROOM);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    const std::size_t room = input.byte() * 8 + input.byte();
    const std::string frame = kvnparse_test::frameOf(input.rest().substr(0, 8192));
    Message message;
    if (!read(message, frame))
        return 0;
    static_cast<void>(checkRooms(*Encoder::alloc("vkvn", &fuzz::dictionary()), message, room));
    const auto encoder = framedEncoder(mode);
    const std::string once = checkRooms(*encoder, message, room);
    // A deletion may name a field of the header, or none; 2^63 changes its sign each time.
    if ((mode & (NO_HEADER | OTHER_END | ADD_PERMISSION)) != 0 || once == "nothing" ||
        frame.find("5004=") != std::string::npos || once.find("9223372036854775808") != std::string::npos)
        return 0;
    // The first time a zero may lose its sign, and a refresh go into the header.
    const std::string twice = writtenAgain(*encoder, once);
    fuzz::expectEqual("written again", writtenAgain(*encoder, twice), twice);
    return 0;
}
