// What the tests of the parser share: a small dictionary, frames and a printed form of messages.
#pragma once

#include "kvnparse/BodyParser.h"
#include "kvnparse/DataMap.h"
#include "kvnparse/Encoder.h"
#include "kvnparse/Message.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvnparse_test {

/// A map that is filled in few words.
class TextMap : public KVNAPI::DataMap {
public:
    KVNAPI::Token* add(int number, const char* name, unsigned storage);
    /// Adds tokens of one storage, each by its number and its name.
    void addAll(unsigned storage, const char* numbersAndNames);
};

/// A map with the tokens that parsers treat specially, and some plain ones: 1 (int), 2 (string), 7 (double),
/// 8 (price), 20000 (int) and 70001 (string).
class TestMap : public TextMap {
public:
    TestMap();
};

/// The bytes of a frame around a body.
[[nodiscard]] std::string frameOf(std::string_view body);

/// Everything that a message says, as text: two messages are the same exactly when their texts are.
[[nodiscard]] std::string describe(const KVNAPI::Message& message);

/// What became of an encoding: its bytes, none of them outside the room, "nothing", or the text of the error.
[[nodiscard]] std::string encoded(KVNAPI::Encoder& encoder, const KVNAPI::Message& message,
                                  std::size_t room = 8192);

/// The forms of the body parser that this processor runs; those that leave numbers undecoded, which they do
/// where texts stay in the frame, stand as forms of their own after their fellows.
[[nodiscard]] std::vector<KVNAPI::BodyParserForm> formsHere();

/// The tokens of a map by number, a line each.
[[nodiscard]] std::string contentOf(KVNAPI::DataMap& map);

/// One end of a stream as a connection has it: what a framer or a parser has not used up stays, and the new
/// bytes come after it, in a block of exactly their size.
template<class Target>
class Feed {
public:
    Feed(std::unique_ptr<Target> fed, std::size_t capacity) : target(std::move(fed)), m_capacity(capacity) {}

    /// Adds as many bytes as find room, and returns how many.
    std::size_t push(std::string_view bytes) {
        const auto rest = std::make_unique<char[]>(m_capacity);
        held = static_cast<std::size_t>(target->moveRemaining(KVNAPI::bufref(rest.get(), m_capacity)));
        bytes = bytes.substr(0, m_capacity - held);
        m_block = std::make_unique<char[]>(held + bytes.size());
        std::string_view(rest.get(), held).copy(m_block.get(), held);
        bytes.copy(m_block.get() + held, bytes.size());
        target->push(KVNAPI::bufref(m_block.get(), held + bytes.size()));
        return bytes.size();
    }

    std::unique_ptr<Target> target;
    std::size_t held = 0; ///< of earlier bytes, when the last ones came

private:
    std::size_t m_capacity;
    std::unique_ptr<char[]> m_block;
};

/// Bytes that stand directly behind or before a page that can't be touched, so that a read outside them ends
/// the test.
class GuardedBytes {
public:
    enum Side { END_AT_GUARD, START_AT_GUARD };

    explicit GuardedBytes(std::size_t capacity);
    ~GuardedBytes();
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    [[nodiscard]] KVNAPI::bufref place(std::string_view bytes, Side side);

private:
    std::size_t m_page;
    std::size_t m_room;
    char* m_block;
};

} // namespace kvnparse_test
