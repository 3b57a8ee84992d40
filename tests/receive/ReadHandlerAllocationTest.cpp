#include "ReadHandlerFixture.h"

#include "support/HeapControl.h"

namespace tivra_internal {
namespace {

/// An application that reads every field as a number, which needs no memory.
struct SummingHandler : tivra::MessageEventHandler {
    void onMessageEvent(const tivra::MessageEvent& event) override {
        tivra::MessageReader& reader = event.getReader();
        while (reader.next() != tivra::MessageReader::END_OF_MESSAGE)
            sum += reader.getValueAsDouble();
        sum += event.getSource() + event.getType() + event.getPermission();
        ++count;
    }
    double sum = 0.0;
    int count = 0;
};

TEST_F(ReadHandlerTest, AnOrdinaryUpdateAllocatesNothing) {
    std::string body = "3=7|4=100|5=IBM";
    for (int i = 0; i < 10; ++i)
        body += "|8=123.45|9=1000|30=abc";
    std::string ordinary = frameOf(body + "|16=1381152600.25|24=1");
    std::string withIndex = frameOf("4=100|5=A.VERY.LONG.SYMBOL.OF.A.TICKER|8=1.5");
    std::string heartbeat = frameOf("4=922|5=.UTC.TIME.DATE|16=1381152600.25");

    AltIndexInfo info;
    info.kvnid = 3101;
    info.value = "A";
    session.altIndexes[20] = {info};
    receive("5026=20|4=100|5=A.VERY.LONG.SYMBOL.OF.A.TICKER|3101=A");
    ASSERT_EQ(receive("4=100|5=A.VERY.LONG.SYMBOL.OF.A.TICKER"),
              "UPDATE A.VERY.LONG.SYMBOL.OF.A.TICKER@100 rc=0 tag=0 [] {3101=A|}");

    SummingHandler summing;
    session.handler = &summing;
    uint64_t delivered = 0;
    const auto receiveAll = [&] {
        handler().process_kvn_buffer(ordinary.data(), ordinary.size(), &delivered);
        handler().process_kvn_buffer(withIndex.data(), withIndex.size(), &delivered);
        handler().process_kvn_buffer(heartbeat.data(), heartbeat.size(), &delivered);
    };
    receiveAll(); // sources and permissions are entered at first sight
    const size_t before = allocationsOfThisThread();
    for (int i = 0; i < 100; ++i)
        receiveAll();
    EXPECT_EQ(allocationsOfThisThread() - before, 0U);
    EXPECT_EQ(delivered, 202U);
    EXPECT_EQ(summing.count, 202);
}

} // namespace
} // namespace tivra_internal
