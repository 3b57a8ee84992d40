// What the tests of the parser share: a small dictionary, frames and a printed form of messages.
#pragma once

#include "kvnparse/DataMap.h"
#include "kvnparse/Message.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kvnparse_test {

/// A map with the tokens that parsers treat specially, and some plain ones: 1 (int), 2 (string), 7 (double),
/// 8 (price), 20000 (int) and 70001 (string).
class TestMap : public KVNAPI::DataMap {
public:
    TestMap();

    KVNAPI::Token* add(int number, const char* name, unsigned storage) {
        KVNAPI::Token token;
        token.kvnid = number;
        token.name = name;
        token.storage = storage & 3U;
        KVNAPI::Token* const added = addToken(&token);
        if (added == nullptr)
            throw std::logic_error(name);
        return added;
    }
};

/// The bytes of a frame around a body.
[[nodiscard]] std::string frameOf(std::string_view body);

/// Everything that a message says, as text: two messages are the same exactly when their texts are.
[[nodiscard]] std::string describe(const KVNAPI::Message& message);

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
