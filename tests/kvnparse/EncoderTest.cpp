// The bytes of the two encoders, and that the parser reads back what the framed one writes.
#include "ParserTestKit.h"

#include "kvnparse/Encoder.h"
#include "kvnparse/FactoryLists.h"
#include "kvnparse/Parser.h"
#include "support/HeapControl.h"

#include <tp/te_error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace KVNAPI;
using namespace kvnparse_test;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;

constexpr auto LEAST_ID = std::numeric_limits<std::int32_t>::min();
constexpr auto LEAST_NUMBER = std::numeric_limits<std::int64_t>::min();

/// The tokens of TestMap, and those that are written in a way of their own.
class EncoderMap : public TestMap {
public:
    EncoderMap() {
        add(30, "TRADE.DATETIME", Token::TY_DOUBLE);
        add(31, "SETTLE.DATE", Token::TY_DOUBLE);
        add(32, "CNF.TRADE.DATETIME", Token::TY_INT);
        add(33, "RECORD.DEL", Token::TY_INT);
    }
};

/// Fills a message from the body of a frame.
void parseBody(DataMap& map, std::string_view body, Message& message) {
    const std::string frame = frameOf(body);
    const auto parser = Parser::alloc("kvn", &map, 65536);
    parser->push(bufref(frame.data(), frame.size()));
    ASSERT_EQ(parser->pull(&message), 0) << tp::te_geterror();
    message.copyStrings();
}

std::unique_ptr<Encoder> encoderOf(DataMap& map, const char* name, const char* options = "") {
    auto encoder = Encoder::alloc(name, &map);
    EXPECT_NE(encoder, nullptr) << tp::te_geterror();
    if (*options != '\0') {
        EXPECT_EQ(encoder->optionParser(options), 0) << tp::te_geterror();
    }
    return encoder;
}

struct WritingCase {
    const char* what;
    const char* options;
    const char* body; ///< of the frame that the message is parsed from; empty for an empty message
    std::string expected;
};

void expectWritings(const char* name, std::initializer_list<WritingCase> rows) {
    for (const WritingCase& row : rows) {
        EncoderMap map;
        ASSERT_EQ(map.setShortName(map.lookupTokenViaNum(8), "b"), 0);
        Message message;
        if (*row.body != '\0')
            parseBody(map, row.body, message);
        EXPECT_EQ(encoded(*encoderOf(map, name, row.options), message), row.expected) << row.what;
    }
}

TEST(KvnEncoder, WritesFramesAsTold) {
    const char* const all = "1=5|4=558|5=IBM|9=Q|6=1|3=7|7=1.5|2=x y|5026=18";
    expectWritings(
        "kvn", {{"the header stands first, in an order of its own", "", all,
                 frameOf("3=7|4=558|9=Q|5=IBM|6=1|1=5|7=1.5|2=x y|5026=18")},
                {"no header", "AppendHeader=0", "5=IBM|1=2", "5=IBM|1=2\x03"},
                {"another end", "AppendHeader=0,SetEOL=10", "5=IBM|1=2", "5=IBM|1=2\n"},
                {"the source as permission too", "AddPermToken=1", "4=558|1=2", frameOf("3=558|4=558|1=2")},
                {"both permissions", "AddPermToken=1", "4=558|3=7", frameOf("3=7|3=558|4=558")},
                {"suppressed tokens", "SuppressToken=2,SuppressToken=30", "2=x|30=5|1=2", frameOf("1=2")},
                {"all is suppressed", "SuppressToken=2", "2=x|2=y", "nothing"},
                {"nothing to write", "AppendHeader=0", "", "nothing"},
                {"ids of more characters than an exchange keeps", "", "3=-2147483648|4=12345678",
                 frameOf("3=-2147483648|4=12345678")},
                {"a record's deletion is always 1", "", "33=17|33=0", frameOf("33=1|33=1")},
                {"deletions of fields", "", "1=|7=|5026=", frameOf("1=|7=|5026=")},
                {"fields that the map lacks", "", "999=abc|1=2", frameOf("45028=999|45029=abc|1=2")},
                {"dates that repeat and change", "", "30=1.25|31=1.25|30=2|31=1.25|32=5|32=5|32=-6|30=0|32=0",
                 frameOf("30=1.25|31=1.25|30=2|31=1.25|32=5|32=5|32=-6|30=0|32=0")},
                {"empty text and zeros", "", "2=|1=0|7=0.000", frameOf("2=|1=0|7=0")},
                {"the display precision is not written", "", "10=131|8=99125", frameOf("8=99125")}});
}

TEST(VkvnEncoder, WritesLinesAsTold) {
    expectWritings(
        "vkvn",
        {{"names, with the source before the permission", "", "1=5|6=1|9=Q|5=IBM|3=7|4=558|8=0.5|2=x y",
          "ENUM.SRC.ID=558 PERMISSION=7 PART.CODE=Q SYMBOL.TICKER=IBM REFRESH=1 PLAIN.INT=5 b=0.5 "
          "PLAIN.TEXT=x y\n"},
         {"no rules of single tokens", "",
          "33=17|30=2.5|1=|2=", "RECORD.DEL=17 TRADE.DATETIME=2.5 TOKEN.DEL=1 PLAIN.TEXT=\n"},
         {"long ids", "", "4=-2147483648|3=12345678", "ENUM.SRC.ID=-2147483648 PERMISSION=12345678\n"},
         {"nothing to write", "", "", "nothing"}});
}

/// A map whose numbers and names are as long as can be.
class LongestMap : public TextMap {
public:
    LongestMap() {
        for (const char* name : {"ENUM.SRC.ID", "PERMISSION", "REFRESH", "INTEGER", "TOKEN.DEL"})
            addLong(name, Token::TY_INT);
        for (const char* name : {"SYMBOL.TICKER", "PART.CODE", "TEXT"})
            addLong(name, Token::TY_STRING);
        for (const char* name : {"NUMBER", "TRADE.DATETIME"})
            addLong(name, Token::TY_DOUBLE);
    }

private:
    void addLong(const char* name, unsigned storage) {
        Token* const token = add(LEAST_ID + static_cast<int>(tokenCount()), name, storage);
        EXPECT_EQ(setShortName(token, std::string(MAX_NAME, 'n').c_str()), 0);
    }
};

/// The message with the longest values that its header and pairs can have.
void fillLongest(LongestMap& map, Message& message, bool permission) {
    message.exchange = map.lookupExchange(LEAST_ID);
    if (permission)
        message.permission = map.lookupExchange(LEAST_ID + 1);
    message.market = 'Q';
    message.symbol = bufref("SYMBOL", 6);
    message.isRefresh = 1;
    for (const char* const name : {"INTEGER", "TOKEN.DEL", "INTEGER"})
        message.addPair()->setI(map.lookupTokenViaName(name), LEAST_NUMBER);
    for (const char* const name : {"NUMBER", "TRADE.DATETIME"})
        message.addPair()->setD(map.lookupTokenViaName(name), -1e300);
    message.addPair()->setS(map.lookupTokenViaName("TEXT"), "some text", 9);
}

/// Encodes with every room up to what surely does, each one ending at a page that must not be touched.
/// Returns the smallest room that did.
std::size_t smallestRoom(Encoder& encoder, const Message& message) {
    const std::string whole = encoded(encoder, message);
    GuardedBytes guarded(2 * whole.size() + 512);
    std::optional<std::size_t> smallest;
    for (std::size_t room = 0; room < whole.size() + 400; ++room) {
        bufref out = guarded.place(std::string(room, '?'), GuardedBytes::END_AT_GUARD);
        tp::te_seterror("");
        const std::size_t allocations = allocationsOfThisThread();
        const int result = encoder.encode(&out, &message);
        if (result == 0) {
            EXPECT_EQ(allocationsOfThisThread(), allocations);
            EXPECT_EQ(out.view(), whole);
            if (!smallest)
                smallest = room;
        } else {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(out.len, room);
            EXPECT_STREQ(tp::te_geterror(), "Not enough space for message.");
            EXPECT_FALSE(smallest) << "room " << room << " does not do though a smaller one did";
        }
    }
    return smallest.value_or(0);
}

TEST(Encoders, NeverWriteBeyondTheirRoomHoweverLongTheValues) {
    for (const char* const options : {"AppendHeader=1", "AppendHeader=0", "AddPermToken=1"}) {
        for (const bool permission : {false, true}) {
            LongestMap map;
            Message message;
            fillLongest(map, message, permission);
            EXPECT_GT(smallestRoom(*encoderOf(map, "kvn", options), message), 0U);
            EXPECT_GT(smallestRoom(*encoderOf(map, "vkvn"), message), 0U);
        }
    }
}

TEST(Encoders, AskForTheToldRoom) {
    const struct {
        const char* body;
        std::size_t kvn;
        std::size_t vkvn;
    } rows[] = {
        {"5=IBM", 3 + 87, 3 + 273},
        {"5=IBM|3=7", 3 + 127, 3 + 346},
        // A source of 11 bytes is 4 longer than an exchange keeps; in frames it may stand there twice.
        {"4=-2147483648", 87 + 8, 273 + 4},
        {"3=-2147483648|4=-2147483648", 127, 346 + 8},
        // A pair may begin where its room is left: behind the 60 bytes of the first.
        {"2=0123456789012345678901234567890123456789012345678901234567|1=5", 6 + 61 + 34, 273},
        // A text needs its own length and one byte more, but never less than any pair.
        {"1=5|2=", 87, 273},
    };
    for (const auto& row : rows) {
        EncoderMap map;
        Message message;
        parseBody(map, row.body, message);
        EXPECT_EQ(smallestRoom(*encoderOf(map, "kvn"), message), row.kvn) << row.body;
        EXPECT_EQ(smallestRoom(*encoderOf(map, "vkvn"), message), row.vkvn) << row.body;
    }
    EncoderMap map;
    Message message;
    const std::string longText(500, 'x');
    message.addPair()->setS(map.lookupTokenViaNum(2), longText.data(), 500);
    EXPECT_EQ(smallestRoom(*encoderOf(map, "kvn"), message), 6U + 2 + 500 + 1);
    EXPECT_EQ(smallestRoom(*encoderOf(map, "vkvn"), message), 11U + 500 + 1);
}

TEST(Encoders, RefuseMapsThatLackWhatTheyWrite) {
    for (const char* const lacked : {"REFRESH", "PART.CODE", "ENUM.SRC.ID", "SYMBOL.TICKER", "PERMISSION"}) {
        for (const bool present : {false, true}) {
            EncoderMap whole;
            DataMap map;
            DataMap::iterator walk(&whole);
            while (Token* const token = walk.next()) {
                Token added = *token;
                if (std::string_view(token->name) == lacked)
                    added.storage = Token::TY_DOUBLE;
                if (present || added.storage == token->storage) {
                    ASSERT_NE(map.addToken(&added), nullptr);
                }
            }
            for (const char* const name : {"kvn", "vkvn"}) {
                EXPECT_EQ(Encoder::alloc(name, &map), nullptr);
                EXPECT_THAT(tp::te_geterror(), HasSubstr(lacked));
            }
        }
    }
}

TEST(KvnEncoder, RefusesAMapWhoseRuleTokensAreStoredOtherwiseAndKeepsTheOldOne) {
    EncoderMap good;
    const auto encoder = encoderOf(good, "kvn");
    for (const auto& [storage, names] : std::map<unsigned, std::vector<std::string>>{
             {Token::TY_INT,
              {"ACTIVITY.DATETIME", "QUOTE.DATETIME", "TRADE.DATETIME", "SETTLE.DATE", "PREV.TRADE.DATE",
               "CURRENT.DATETIME"}},
             {Token::TY_DOUBLE,
              {"RECORD.DEL", "CNF.ACTIVITY.DATETIME", "CNF.QUOTE.DATETIME", "CNF.TRADE.DATETIME"}}}) {
        for (const std::string& name : names) {
            TestMap bad;
            bad.add(500, name.c_str(), storage);
            EXPECT_EQ(encoder->setMetaMap(&bad), -1);
            EXPECT_EQ(tp::te_geterror(), "Type mismatch on encode rule token '" + name + "'");
            EXPECT_NE(Encoder::alloc("vkvn", &bad), nullptr) << "no rules hold for lines";
        }
    }
    Message message;
    parseBody(good, "5=IBM|33=9", message);
    EXPECT_EQ(encoded(*encoder, message), frameOf("5=IBM|33=1"));
}

TEST(KvnEncoder, FollowsItsMapWhenThatIsCopiedOver) {
    EncoderMap source;
    source.createTokenSerialId(source.lookupTokenViaNum(1));
    source.createTokenSerialId(source.lookupTokenViaNum(2));
    EncoderMap map;
    const auto encoder = encoderOf(map, "kvn", "SuppressToken=1");
    map.copy(&source);
    // Serial ids begin at 0 again, beside those that came with the tokens.
    Message message;
    parseBody(map, "4=5|33=9|2=text|1=5|30=2.5", message);
    EXPECT_EQ(encoded(*encoder, message), frameOf("4=5|33=1|2=text|30=2.5"));
    EXPECT_EQ(encoded(*encoderOf(map, "vkvn"), message),
              "ENUM.SRC.ID=5 RECORD.DEL=9 PLAIN.TEXT=text PLAIN.INT=5 TRADE.DATETIME=2.5\n");
    map.copy(std::make_unique<DataMap>().get());
    message.reset();
    EXPECT_EQ(encoded(*encoder, message), "Token REFRESH not found");
}

TEST(Encoders, AnswerForTheirNamesAndOptions) {
    EncoderMap map;
    EXPECT_EQ(Encoder::alloc("zkvn", &map), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Could not find option 'zkvn'");
    EXPECT_EQ(Encoder::alloc("help", &map), nullptr);
    EXPECT_THAT(tp::te_geterror(), AllOf(HasSubstr("kvn : Brindsel Token Format (HUB->applications)"),
                                         EndsWith("vkvn : Verbose output from detoker2")));
    const struct {
        const char* encoder;
        const char* options;
        const char* error;
    } rows[] = {
        {"kvn", "Append=1", "Invalid option name"},
        {"kvn", "AppendHeader", "Invalid option syntax"},
        {"kvn", "SuppressToken=4711", "Token id 4711 not found"},
        {"kvn", "help",
         "\nAvailable options are:\n  AppendHeader=0|1   : Toggle prepending of 6 byte header\n"
         "  SuppressToken=<id> : Add token with kvnid <id> to suppress list\n"
         "  SetEOL=<ascii #>   : Set the End-Of-Line character (default 3)"},
        {"vkvn", "help", "No options supported by this parser"},
        {"vkvn", "SetEOL=3", "Invalid option name"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(encoderOf(map, row.encoder)->optionParser(row.options), -1) << row.options;
        EXPECT_STREQ(tp::te_geterror(), row.error);
    }
    // Straight from the list, with no map.
    for (const char* const name : {"kvn", "vkvn"}) {
        const auto encoder = EncoderList.getName(name)();
        EXPECT_EQ(encoded(*encoder, Message()), "Encoder has no token map");
        EXPECT_EQ(encoder->setOption("SuppressToken", "1"), -1);
    }
}

} // namespace
