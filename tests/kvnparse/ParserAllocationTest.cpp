// Counts what the parser takes from the heap, in a program of its own.
#include "ParserTestKit.h"

#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"
#include "support/HeapControl.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace kvnparse_test;

std::string bodyOf(int pairs, std::size_t text) {
    std::string body = "5=IBM|4=37|2=" + std::string(text, 'x');
    for (int i = 1; i < pairs; ++i)
        body += i % 2 == 0 ? "|7=167.42" : "|1=29000";
    return body;
}

/// Heap allocations of 100 messages in one stream, after a first one.
std::size_t allocationsFor(const std::string& body) {
    TestMap map;
    const auto parser = KVNAPI::Parser::alloc("kvn", &map, 1 << 20);
    std::string stream;
    for (int i = 0; i < 100; ++i)
        stream += frameOf(body);
    const std::string first = frameOf(body);
    const auto pullAll = [&parser](const std::string& bytes) {
        parser->push(KVNAPI::bufref(bytes.data(), bytes.size()));
        int count = 0;
        for (;;) {
            KVNAPI::Message message;
            if (parser->pull(&message) != 0)
                return count;
            ++count;
        }
    };
    EXPECT_EQ(pullAll(first), 1);
    const std::size_t before = allocationsOfThisThread();
    EXPECT_EQ(pullAll(stream), 100);
    return allocationsOfThisThread() - before;
}

TEST(ParserAllocation, NoneUpTo32PairsAnd64BytesOfText) {
    EXPECT_EQ(allocationsFor(bodyOf(32, 61)), 0U);
    EXPECT_EQ(allocationsFor("1=1"), 0U);
    EXPECT_EQ(allocationsFor("777=unknown|1="), 0U);
}

TEST(ParserAllocation, OneMoreOfEitherCostsOneAllocation) {
    EXPECT_EQ(allocationsFor(bodyOf(33, 61)), 100U);
    EXPECT_EQ(allocationsFor(bodyOf(32, 62)), 100U);
}

} // namespace
