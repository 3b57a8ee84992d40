#include "kvnparse/Deflater.h"

#include <capture/CaptureNote.h>
#include <capture/CaptureReader.h>
#include <capture/CaptureWriter.h>

#include <gmock/gmock.h>
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <unistd.h>

using namespace tivra_capture;
using testing::AllOf;
using testing::HasSubstr;

namespace {

using Messages = std::vector<std::pair<std::int64_t, std::string>>;

std::string number(std::uint64_t value, unsigned bytes) {
    std::string text;
    while (bytes-- > 0)
        text.push_back(static_cast<char>(value >> (8 * bytes)));
    return text;
}

std::uint32_t crcOf(const std::string& bytes) {
    return static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

std::string deflated(const std::string& bytes) {
    return kvnparse_test::Deflater()(bytes, Z_FINISH);
}

std::string messageBytes(std::int64_t time, const std::string& body) {
    return number(static_cast<std::uint64_t>(time), 8) + number(body.size(), 4) + body;
}

/// A block with a header that may lie, and checksums that don't.
std::string blockBytes(const std::string& data, std::size_t length, std::size_t count, std::int64_t time) {
    std::string header = "BLCK" + number(data.size(), 4) + number(length, 4) + number(count, 4) +
                         number(static_cast<std::uint64_t>(time), 8) + number(crcOf(data), 4);
    header += number(crcOf(header), 4);
    return header + data;
}

std::string honestBlock(const std::string& content, std::size_t count, std::int64_t time) {
    return blockBytes(deflated(content), content.size(), count, time);
}

const std::string HEADER = "TIVRACAP" + number(1, 4) + number(0, 4);

/// The end of a file, with an index of entries that may lie.
std::string endBytes(const std::string& entries, std::size_t count, std::size_t offset) {
    const std::string index = "INDX" + number(count, 4) + entries;
    return index + number(crcOf(index), 4) + number(offset, 8) + "TIVRAEND";
}

class CaptureFormat : public testing::Test {
protected:
    ~CaptureFormat() override { std::filesystem::remove(path); }

    void write(const std::string& bytes) const { std::ofstream(path, std::ios::binary) << bytes; }
    [[nodiscard]] std::string bytes() const {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// What can be read before the end or the fault, which `error` then tells.
    Messages read(std::string* error = nullptr, bool* isComplete = nullptr) const {
        Messages messages;
        try {
            CaptureReader reader(path);
            if (isComplete != nullptr)
                *isComplete = reader.isComplete();
            Message message;
            while (reader.next(message))
                messages.emplace_back(message.nanoseconds, message.body);
        } catch (const CaptureError& fault) {
            if (error == nullptr)
                throw;
            *error = fault.what();
        }
        return messages;
    }

    /// Three blocks of two, one and two messages.
    void writeSmall() const {
        CaptureWriter writer(path);
        for (std::size_t i = 0; i < SMALL.size(); ++i) {
            writer.add({SMALL[i].first, SMALL[i].second});
            if (i == 1 || i == 2)
                writer.flush();
        }
        writer.finish();
    }

    const Messages SMALL{{1000, "4=100|5=IBM|101=1.5"},
                         {-5, std::string("\0\xFF\n|=", 5)},
                         {INT64_MAX, ""},
                         {900, "4=100|5=IBM|101=1.25"},
                         {901, "4=100|5=SPY|101="}};
    const std::string path = testing::TempDir() + "tivra-capture." + std::to_string(getpid());
};

TEST_F(CaptureFormat, FileIsWhatTheDocumentSays) {
    writeSmall();
    const std::vector<std::string> contents{
        messageBytes(SMALL[0].first, SMALL[0].second) + messageBytes(SMALL[1].first, SMALL[1].second),
        messageBytes(SMALL[2].first, SMALL[2].second),
        messageBytes(SMALL[3].first, SMALL[3].second) + messageBytes(SMALL[4].first, SMALL[4].second)};
    const std::string file = bytes();
    std::string entries;
    std::size_t at = 16;
    ASSERT_EQ(file.substr(0, at), HEADER);
    for (std::size_t i = 0; i < contents.size(); ++i) {
        const std::size_t count = i == 1 ? 1 : 2;
        const std::int64_t time = SMALL[i == 0 ? 0 : i + 1].first;
        entries += number(at, 8) + number(static_cast<std::uint64_t>(time), 8) + number(count, 4);
        // How well it is compressed is the writer's business.
        const std::size_t size = static_cast<unsigned char>(file.at(at + 7));
        const std::string data = file.substr(at + 32, size);
        ASSERT_EQ(file.substr(at, 32 + size), blockBytes(data, contents[i].size(), count, time));
        std::string content(contents[i].size(), '\0');
        uLongf length = content.size();
        ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(content.data()), &length,
                             reinterpret_cast<const Bytef*>(data.data()), data.size()),
                  Z_OK);
        EXPECT_EQ(content, contents[i]);
        at += 32 + size;
    }
    EXPECT_EQ(file.substr(at), endBytes(entries, 3, at));
    EXPECT_EQ(read(), SMALL);
}

TEST_F(CaptureFormat, CutAnywhereItGivesAllWholeBlocksBeforeTheCut) {
    writeSmall();
    const std::string whole = bytes();
    const std::vector<BlockPlace> blocks = CaptureReader(path).blocks();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        write(whole.substr(0, length));
        std::string error;
        bool isComplete = true;
        const Messages messages = read(&error, &isComplete);
        if (length < 16) {
            EXPECT_THAT(error, HasSubstr("not a capture")) << length;
            continue;
        }
        EXPECT_EQ(error, "") << length;
        EXPECT_FALSE(isComplete) << length;
        const long expected = length >= whole.find("INDX") ? 5
                              : length >= blocks[2].offset ? 3
                              : length >= blocks[1].offset ? 2
                                                           : 0;
        EXPECT_EQ(messages, Messages(SMALL.begin(), SMALL.begin() + expected)) << length;
    }
}

TEST_F(CaptureFormat, NoChangedByteGoesUnnoticed) {
    writeSmall();
    const std::string whole = bytes();
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const int mask : {0x01, 0x80, 0xFF}) {
            std::string changed = whole;
            changed[at] = static_cast<char>(changed[at] ^ mask);
            write(changed);
            std::string error;
            bool isComplete = true;
            const Messages messages = read(&error, &isComplete);
            EXPECT_TRUE(!error.empty() || !isComplete) << at;
            ASSERT_LE(messages.size(), SMALL.size()) << at;
            EXPECT_TRUE(std::equal(messages.begin(), messages.end(), SMALL.begin())) << at;
        }
    }
}

TEST_F(CaptureFormat, HostileFilesAreRefusedWithThePlaceOfTheFault) {
    const std::string one = messageBytes(7, "4=100|5=IBM");
    const std::string good = HEADER + honestBlock(one, 1, 7);
    const std::string at = "at byte " + std::to_string(good.size()) + ": ";
    const std::string lengths = at + "the lengths of the block are out of bounds";
    const std::string content = at + "the block can't be uncompressed to what its header says";
    const std::string beyond = at + "a message reaches beyond the block";
    const std::string megabyte = deflated(std::string(1 << 20, '\0'));
    const auto entry = [](std::size_t offset) { return number(offset, 8) + number(7, 8) + number(1, 4); };
    const struct {
        std::string bytes;
        std::size_t readable; ///< messages before the fault
        std::string expected;
    } rows[] = {
        {"", 0, "not a capture"},
        {std::string(64, 'x'), 0, "not a capture"},
        {"TIVRACAP" + number(2, 4) + number(0, 4), 0, "version 2"},
        {good + std::string(40, 'x'), 1, at + "no block begins here"},
        // A thousand bytes after a header that admits what they become, or doesn't.
        {good + blockBytes(megabyte, 1 << 20, 1, 7), 1, lengths},
        {good + blockBytes(megabyte, 2000, 1, 7), 1, content},
        {good + blockBytes(deflated(one), one.size() + 1, 1, 7), 1, content},
        {good + blockBytes(std::string(20, 'x'), 100, 1, 7), 1, content},
        {good + blockBytes(deflated(""), 0, 0, 7), 1, lengths},
        {good + honestBlock(one, 2, 7), 1, lengths},
        {good + honestBlock(messageBytes(8, std::string(20, 'x')), 2, 7), 2, beyond},
        {good + honestBlock(one + one, 1, 7), 2, at + "the block has bytes behind its last message"},
        {good + honestBlock(number(7, 8) + number(0xFFFFFFFF, 4) + "x", 1, 7), 1, beyond},
        {good + endBytes("", 0, good.size() + 1000), 1, "doesn't say where the index is"},
        {good + endBytes("", 1, good.size()), 1, at + "the index is damaged"},
        {good + endBytes(entry(good.size()), 1, good.size()), 1, "names a block where none can be"},
        {good + endBytes(entry(16) + entry(16), 2, good.size()), 1, "names a block where none can be"},
        {good + endBytes(entry(17), 1, good.size()), 0, "at byte 17: no block begins here"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.bytes) + ": " + row.expected);
        write(row.bytes);
        std::string error;
        EXPECT_EQ(read(&error).size(), row.readable);
        EXPECT_THAT(error, AllOf(HasSubstr(path + ": "), HasSubstr(row.expected)));
    }
}

TEST_F(CaptureFormat, LongBodiesAndManyBlocksComeBackAndCanBeSought) {
    std::mt19937 random(4711);
    Messages sent;
    for (std::int64_t i = 0; i < 400; ++i) {
        // Every hundredth is of the greatest length, and random bytes can't be compressed.
        std::string body(i % 100 == 0 ? kMaxBody : random() % 8000, '\0');
        for (char& c : body)
            c = static_cast<char>(random());
        sent.emplace_back(i * 10, std::move(body));
    }
    {
        CaptureWriter writer(path);
        for (const auto& [time, body] : sent)
            writer.add({time, body});
        EXPECT_THROW(writer.add({1, std::string(kMaxBody + 1, 'x')}), CaptureError);
        writer.finish();
        EXPECT_EQ(writer.messages(), 400U);
    }
    EXPECT_EQ(read(), sent);
    CaptureReader reader(path);
    EXPECT_EQ(reader.messages(), 400U);
    ASSERT_GT(reader.blocks().size(), 5U);
    Message message;
    for (const std::int64_t time : {std::int64_t{1995}, std::int64_t{-1}, std::int64_t{3990}, INT64_MAX}) {
        reader.seek(time);
        ASSERT_TRUE(reader.next(message));
        const auto block = static_cast<std::size_t>(message.nanoseconds / 10);
        EXPECT_EQ(message.body, sent[block].second);
        EXPECT_TRUE(message.nanoseconds <= time || message.nanoseconds == 0) << time;
        for (const BlockPlace& place : reader.blocks())
            EXPECT_TRUE(place.firstNanoseconds > time || place.firstNanoseconds <= message.nanoseconds)
                << time;
    }
}

TEST(CaptureNote, AnyTextComesBackAndAnyBytesAreTakenApart) {
    const Note hole{"hole", {{"source", "100"}, {"text", "a|b\nc=d"}, {"empty", ""}}};
    const std::string body = hole.body();
    EXPECT_EQ(body, "!kind=hole|source=100|text=a b c=d|empty=");
    EXPECT_TRUE(isNote(body));
    const Note back = noteOf(body);
    EXPECT_EQ(back.kind, "hole");
    EXPECT_EQ(back.value("source"), "100");
    EXPECT_EQ(back.value("text"), "a b c=d");
    EXPECT_EQ(back.value("none"), "");
    for (const char* broken : {"", "!", "!|", "!kind", "!=|=|x", "!kind=|kind=x||"})
        EXPECT_EQ(noteOf(broken).value("text"), "") << broken;
    EXPECT_FALSE(isNote(""));
    EXPECT_FALSE(isNote("4=100|5=!"));
}

} // namespace
