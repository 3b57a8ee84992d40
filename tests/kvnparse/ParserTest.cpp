// The parser's results, for each of its forms that this processor runs.
#include "ParserTestKit.h"

#include "kvnparse/BodyParser.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Parser.h"
#include "support/HeapControl.h"

#include <tp/te_error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace KVNAPI;
using namespace kvnparse_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using namespace std::string_literals;

std::string firstErrorLine() {
    const std::string text = tp::te_geterror();
    return text.substr(0, text.find('\n'));
}

/// What became of a frame: the message as text, or the first line of the error.
std::string outcome(KVNParse& parse, BodyParser form, bufref frame) {
    Message message;
    if (parse.parseWith(form, frame, &message) == 0)
        return describe(message);
    return firstErrorLine();
}

class ParserForms : public testing::Test {
protected:
    ParserForms() { EXPECT_EQ(parse.setMetaMap(&map), 0); }

    TestMap map;
    KVNParse parse;
};

struct BodyCase {
    const char* what;
    std::string body;
    std::string expected;
};

/// Each row by each form, which must not touch the page before or after the frame.
void expectBodies(KVNParse& parse, const std::initializer_list<BodyCase>& rows) {
    GuardedBytes memory(4096);
    for (const bool inFrame : {false, true}) {
        parse.setTextsInFrame(inFrame);
        for (const BodyCase& row : rows)
            for (const BodyParserForm& form : formsHere())
                for (const auto side : {GuardedBytes::END_AT_GUARD, GuardedBytes::START_AT_GUARD})
                    EXPECT_EQ(outcome(parse, form.parse, memory.place(frameOf(row.body), side)), row.expected)
                        << row.what << " by " << form.name;
    }
}

TEST_F(ParserForms, ReadValuesAsTold) {
    expectBodies(
        parse,
        {{"plain pairs", "1=17|2=ABC|7=1.5|8=-0.25", "1:17 2:'ABC' 7:1.5 8:-0.25"},
         {"signs of integers", "1=-5|1=+6|20000=-0|1=007", "1:-5 1:6 20000:0 1:7"},
         {"integers beyond 64 bits wrap", "1=18446744073709551621|1=-9223372036854775808",
          "1:5 1:-9223372036854775808"},
         {"long integers", "1=138115260012345678|1=12345678|1=123456789",
          "1:138115260012345678 1:12345678 1:123456789"},
         {"doubles without all their parts", "7=12.|7=.5|7=-.5|7=+3|7=.|7=-0",
          "7:12 7:0.5 7:-0.5 7:3 7:0 7:-0"},
         {"long doubles", "7=1381152600.123456|7=12345678901234567.5|7=0.12345678901234567",
          "7:1381152600.123456 7:12345678901234568 7:0.12345678901234569"},
         {"the sum of the parts, not the nearest double", "7=0.3|7=8.41|8=5.56",
          "7:0.30000000000000004 7:8.4100000000000001 8:5.5600000000000005"},
         {"deleted values", "5026=|1=2|7=", "[tag] 5004:5026 1:2 5004:7"},
         {"empty text is a value", "2=|2=", "2:'' 2:''"},
         {"text with any byte", "2=a=b=c|2=\x80\xff 1.2|1=3", "2:'a=b=c' 2:'\x80\xff 1.2' 1:3"},
         {"unknown numbers", "999999=ABC|1=5|6553=", "45028:'999999' 45029:'ABC' 1:5 45028:'6553' 45029:''"},
         {"numbers that would wrap into known ones",
          "4294967297=A|18446744073709551617=B|2147483648=C|00000000000000000001=7",
          "45028:'4294967297' 45029:'A' 45028:'18446744073709551617' 45029:'B' 45028:'2147483648' 45029:'C' "
          "1:7"},
         {"fields that cross what the vector forms look at",
          "2=" + std::string(500, 'x') + "|1=5|7=1.5|2=" + std::string(700, 'y') + "|5=IBM",
          "symbol=IBM 2:'" + std::string(500, 'x') + "' 1:5 7:1.5 2:'" + std::string(700, 'y') + "'"},
         {"numbers of any size", "70001=far|20000=9|45028=x", "70001:'far' 20000:9 45028:'x'"},
         {"all header fields", "5=IBM|4=37|3=12|9=N|6=1|10=66|1=1",
          "symbol=IBM source=37 permission=12 market=N refresh precision=66 1:1"},
         {"second occurrences", "5=IBM|5=AIG|4=1|4=2|3=3|3=4",
          "symbol=IBM source=1 permission=3 5:'AIG' 4:2 3:4"},
         {"an empty symbol is none", "5=|5=IBM", "symbol=IBM"},
         {"empty sources read as 0", "4=|3=|1=1", "source=0 permission=0 1:1"},
         {"signed sources", "4=-7|3=+9", "source=-7 permission=9"},
         {"a refresh that is not 1", "6=0|6=11|6=|6=1", "refresh 6:0 6:11 5004:6"},
         {"precision codes", "10=129|1=1", "precision=129 1:1"},
         {"an unknown precision", "10=1", ""},
         {"status and tag stay pairs", "5001=0|5026=18", "[status] [tag] 5001:0 5026:18"},
         {"alternate identifiers", "11=a|12=b|13=c|14=d|15=e|16=f",
          "[altindex] 11:'a' 12:'b' 13:'c' 14:'d' 15:'e' 16:'f'"}});
}

/// Where a body was given up, and why.
std::string error(const char* place, const char* reason) {
    return std::string("Parser error around pos ") + place + ": " + reason;
}

TEST_F(ParserForms, RefuseBodiesWhereTheyGoWrong) {
    expectBodies(
        parse,
        {{"empty body", "", error("6(0x03)", "Invalid token")},
         {"trailing separator", "1=1|", error("10(0x03)", "Invalid token")},
         {"no number", "=1", error("6('=')", "Invalid token")},
         {"a name", "BID=1", error("6('B')", "Invalid token")},
         {"signed number of a token", "1=1|+1=1", error("10('+')", "Invalid token")},
         {"no equals sign", "1=1|17|1=1", error("10('1')", "Invalid token")},
         {"no field at all", "1=1|17", error("10('1')", "Invalid token")},
         {"fraction of an integer", "1=1.5", error("9('.')", "Invalid value")},
         {"letters in numbers", "1=12a4|1=1", error("10('a')", "Invalid value")},
         {"letters behind a fraction", "7=1.25x", error("12('x')", "Invalid value")},
         {"two points", "2=abcdef|7=1.2.3", error("20('.')", "Invalid value")},
         {"sign alone", "1=-", error("8('-')", "Invalid value")},
         {"sign and point", "7=-.", error("8('-')", "Invalid value")},
         {"sign behind digits", "7=1-", error("9('-')", "Invalid value")},
         {"two signs", "1=--1", error("8('-')", "Invalid value")},
         {"sign, point and digit of an integer", "2=abcdef|1=-.5", error("17('-')", "Invalid value")},
         {"a point of an integer after a sign", "2=abcdef|1=-1.5", error("19('.')", "Invalid value")},
         {"a damaged number, then a damaged source", "2=abcdef|1=5x|4=y", error("18('x')", "Invalid value")},
         {"blanks", "1= 1", error("8(' ')", "Invalid value")},
         {"18 fraction digits", "7=1.123456789012345678", error("8('1')", "Invalid value")},
         {"a part code of two bytes", "9=AB|1=1", error("9('B')", "Invalid value")},
         {"an empty part code", "9=|1=1", error("9('1')", "Invalid value")},
         {"no part code at the end", "1=1|9=", error("12(0x03)", "Invalid value")},
         {"a part code, then the end", "9=|\x03", error("9(0x03)", "Data after ETX")},
         {"an end byte in text", "2=AB\x03XY", error("10(0x03)", "Data after ETX")},
         {"an end byte in a number", "1=5\x03|1=6", error("9(0x03)", "Data after ETX")}});
}

TEST_F(ParserForms, AgreeOnDecimalsOfEveryShape) {
    parse.setTextsInFrame(true);
    for (std::size_t shape = 0; shape < 19 * 19; ++shape) {
        for (const char digit : {'0', '1', '5', '9'}) {
            const std::string text = std::string(shape / 19, digit) + '.' + std::string(shape % 19, digit);
            const std::string frame = frameOf("2=a|7=" + text + "|7=-" + text + "|7=+" + text + "1|1=2");
            const bufref bytes(frame.data(), frame.size());
            const std::string expected = outcome(parse, parseBodyScalar, bytes);
            for (const BodyParserForm& form : formsHere())
                ASSERT_EQ(outcome(parse, form.parse, bytes), expected) << form.name << " on " << text;
        }
    }
}

/// Bodies of fields in any order, of sizes around those at which something is done in another way.
class AnyBody {
public:
    std::string next() {
        const std::size_t counts[] = {1, 3, 12, 31, 32, 33, 63, 64, 65, 129, 300};
        std::string body;
        for (std::size_t left = pick(counts); left > 0; --left)
            body.append(field()).append(left > 1 ? "|" : "");
        return body;
    }

private:
    template<class Choice, std::size_t kCount>
    const Choice& pick(const Choice (&choices)[kCount]) {
        return choices[m_random() % kCount];
    }
    std::string field() {
        const char* const ordinary[] = {
            "1=17", "7=1.5", "8=138115260.125", "20000=123456789", "5=IBM",   "4=37",    "3=9",
            "9=N",  "6=1",   "10=66",           "5001=0",          "5026=18", "11=cusip"};
        const char* const odd[] = {"1=-5", "8=-0.25", "7=",   "1=",   "777=unknown", "9=",     "1=x",
                                   "01=1", "6=0",     "7=1.", "7=.5", "70001=high",  "2=\x03", ""};
        const std::size_t sizes[] = {0, 1, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 128, 513, 16000};
        switch (m_random() % 64) {
        case 0:
            return pick(odd);
        case 1:
            return "2=" + std::string(pick(sizes), 'a');
        case 2:
        case 3:
            return "2=" + std::string(m_random() % 40, 'b');
        case 4:
            return std::to_string(21000 + m_random() % 20000) + "=5";
        default:
            return pick(ordinary);
        }
    }

    std::mt19937 m_random{20131007};
};

TEST_F(ParserForms, AgreeOnFieldsInAnyOrder) {
    // More fields than an index of them has places for.
    for (int number = 21000; number < 41000; ++number)
        map.add(number, ("FIELD." + std::to_string(number)).c_str(), Token::TY_INT);
    GuardedBytes memory(1 << 20);
    AnyBody bodies;
    std::vector<std::unique_ptr<KVNParse>> parsers;
    for (int i = 0; i < 4000; ++i) {
        const std::string frame = frameOf(bodies.next());
        const std::string expected = outcome(parse, parseBodyScalar, bufref(frame.data(), frame.size()));
        std::size_t next = 0;
        for (const BodyParserForm& form : formsHere()) {
            for (const bool inFrame : {false, true}) {
                if (next == parsers.size()) {
                    parsers.push_back(std::make_unique<KVNParse>());
                    ASSERT_EQ(parsers.back()->setMetaMap(&map), 0);
                    parsers.back()->setTextsInFrame(inFrame);
                }
                const auto side =
                    (i + inFrame) % 2 == 0 ? GuardedBytes::END_AT_GUARD : GuardedBytes::START_AT_GUARD;
                ASSERT_EQ(outcome(*parsers[next++], form.parse, memory.place(frame, side)), expected)
                    << form.name << " on " << frame;
            }
        }
    }
}

TEST(ParserOptions, AndTheMapMayChangeBetweenFrames) {
    const std::string frame = frameOf("5=IBM|9=N|5001=0|123=4");
    for (const BodyParserForm& form : formsHere()) {
        SCOPED_TRACE(form.name);
        TestMap map, other, third;
        KVNParse parse;
        ASSERT_EQ(parse.setMetaMap(&map), 0);
        const auto result = [&] { return outcome(parse, form.parse, bufref(frame.data(), frame.size())); };
        EXPECT_EQ(result(), "symbol=IBM market=N [status] 5001:0 45028:'123' 45029:'4'");
        // A token that becomes known while the parser is in use.
        map.add(123, "LATE", Token::TY_INT);
        EXPECT_EQ(result(), "symbol=IBM market=N [status] 5001:0 123:4");
        ASSERT_EQ(parse.setOption("DoNotParseSymbolIntoHeader", "1"), 0);
        EXPECT_EQ(result(), "market=N [status] 5:'IBM' 5001:0 123:4");
        ASSERT_EQ(parse.setOption("PartCodeInHeader", "0"), 0);
        EXPECT_EQ(result(), "[status] 5:'IBM' 9:'N' 5001:0 123:4");
        ASSERT_EQ(parse.setOption("ParseIntoHeader", "0"), 0);
        EXPECT_EQ(result(), "5:'IBM' 9:'N' 5001:0 123:4");
        ASSERT_EQ(parse.setOption("ParseIntoHeader", "1"), 0);
        map.copy(&other);
        EXPECT_EQ(result(), "[status] 5:'IBM' 9:'N' 5001:0 45028:'123' 45029:'4'");
        ASSERT_EQ(parse.setMetaMap(&third), 0);
        EXPECT_EQ(result(), "[status] 5:'IBM' 9:'N' 5001:0 45028:'123' 45029:'4'");
    }
}

TEST_F(ParserForms, KeepFunctionsApartWhenACopiedMapRepeatsSerialIds) {
    DataMap bare, copied;
    for (const char* const name : {"UNKNOWNTOKEN", "UNKNOWNSVALUE", "TOKEN.DEL", "ENUM.SRC.ID", "PERMISSION"})
        ASSERT_NE(bare.addToken(map.lookupTokenViaName(name)), nullptr);
    // The tokens of a map that was bound have serial ids, which travel; its counter starts again.
    ASSERT_EQ(parse.setMetaMap(&bare), 0);
    copied.copy(&bare);
    ASSERT_NE(copied.addToken(map.lookupTokenViaName("PRODUCT.ROOT")), nullptr);
    Token late;
    late.kvnid = 300;
    late.name = "LATE";
    ASSERT_EQ(copied.createTokenSerialId(copied.addToken(&late)), 0);
    KVNParse second;
    ASSERT_EQ(second.setMetaMap(&copied), 0);
    expectBodies(second,
                 {{"repeated ids", "300=5|4=6|3=7|16=x", "source=6 permission=7 [altindex] 300:5 16:'x'"}});
}

class ParserTest : public testing::Test {
protected:
    /// What a parser makes of a text, pulled until it wants more.
    std::vector<std::string> pullAll(std::string_view bytes) {
        std::vector<std::string> results;
        parser->push(bufref(bytes.data(), bytes.size()));
        Message message;
        for (int result = parser->pull(&message); result != 1; result = parser->pull(&message))
            results.push_back((result == 0 ? describe(message) : firstErrorLine()) + " #" +
                              std::to_string(parser->msglen()));
        return results;
    }

    TestMap map;
    std::unique_ptr<Parser> parser = Parser::alloc("kvn", &map, 1 << 16);
};

TEST_F(ParserTest, BadBodyIsRefusedAndTheNextFrameStillParses) {
    EXPECT_THAT(pullAll(frameOf("1=1") + frameOf("") + frameOf("1=x") + frameOf("1=2")),
                ElementsAre("1:1 #10", error("6(0x03)", "Invalid token #0"),
                            error("8('x')", "Invalid value #0"), "1:2 #10"));
    bufref none;
    EXPECT_EQ(parser->pull(&none), -1);
}

TEST_F(ParserTest, FrameInHandReadsAsWhenPushedAndOtherBytesAreLeftToPull) {
    const std::string good = frameOf("5=IBM|1=1");
    for (const std::string& frame : {good, frameOf(""), frameOf("1=x"), frameOf("1=1|2=\x03|1=2")}) {
        Message message;
        const int result = parser->parseFrame(bufref(frame.data(), frame.size()), &message);
        const std::string outcome = result == 0 ? describe(message) : firstErrorLine();
        EXPECT_THAT(pullAll(frame), ElementsAre(outcome + " #" + std::to_string(parser->msglen())));
    }
    std::string badMark = good, badEnd = good;
    badMark[1] = '!';
    badEnd.back() = 'x';
    Message message;
    for (const std::string& bytes : {badMark, badEnd, good + good, good + "x", "x" + good, good.substr(0, 5),
                                     good.substr(0, good.size() - 1), ""s}) {
        EXPECT_EQ(parser->parseFrame(bufref(bytes.data(), bytes.size()), &message), 1) << bytes;
        EXPECT_EQ(describe(message), "");
    }
}

TEST_F(ParserTest, VerboseLinesMixNamesAndNumbers) {
    parser = Parser::alloc("vkvn", &map, 4096);
    const std::string longName(255, 'N');
    EXPECT_THAT(pullAll("SYMBOL.TICKER=IBM|PERMISSION=7|1=2\nNO.SUCH=5|2=\x03x\n" + longName + "=1\nN" +
                        longName + "=1\n=1\n\nPLAIN.TEXT\n" + "PLAIN.TEXT\0X=1\n"s),
                ElementsAre("symbol=IBM permission=7 1:2 #35", "45028:'NO.SUCH' 45029:'5' 2:'\x03x' #15",
                            "45028:'" + longName + "' 45029:'1' #258", error("0('N')", "Invalid token #0"),
                            error("0('=')", "Invalid token #0"), error("0(0x0a)", "Invalid token #0"),
                            error("0('P')", "Invalid token #0"), "45028:'PLAIN.TEXT\0X' 45029:'1' #15"s));
}

TEST_F(ParserTest, OptionsNeverLetItReadPastAFrame) {
    const std::string texts[] = {frameOf("1=1"), frameOf("2=text"), frameOf("5=IBM"),
                                 frameOf("9=N"), frameOf("7=1."),   frameOf("6=1"),
                                 "2=A\n",        "1=12\n",          "\n"};
    GuardedBytes memory(4096);
    Message message;
    // Terminators that do not stand at the end, a header longer than the line.
    for (const char* const options :
         {"SetEOL=10", "SetEOL=124", "SetEOL=61", "SetEOL=49", "HasKVNHeader=0"}) {
        for (const char* const name : {"kvn", "vkvn"}) {
            parser = Parser::alloc(name, &map, 4096);
            ASSERT_EQ(parser->optionParser(options), 0);
            for (const std::string& text : texts) {
                parser->reset();
                parser->push(memory.place(text, GuardedBytes::END_AT_GUARD));
                EXPECT_NE(parser->pull(&message), 2) << options;
            }
        }
    }
    parser = Parser::alloc("vkvn", &map, 4096);
    ASSERT_EQ(parser->optionParser("HasKVNHeader=1"), 0);
    EXPECT_THAT(pullAll("1=1\n"), ElementsAre(StartsWith("Parser error around pos 4(end)")));
}

TEST_F(ParserTest, RefusesAMapWithoutTheTokensThatItNeedsAndKeepsTheOldOne) {
    DataMap empty;
    EXPECT_EQ(Parser::alloc("kvn", &empty, 4096), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Token UNKNOWNTOKEN not found");
    EXPECT_EQ(Parser::alloc("none", &empty, 4096), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Could not find option 'none'");
    EXPECT_EQ(parser->setMetaMap(&empty), -1);
    EXPECT_THAT(pullAll(frameOf("1=1")), ElementsAre("1:1 #10"));
}

TEST_F(ParserTest, OptionTextIsWalkedToTheFirstRefusal) {
    EXPECT_EQ(parser->optionParser("help"), -1);
    EXPECT_THAT(tp::te_geterror(), StartsWith("\nAvailable options are:\n  AllowVerboseToken=0|1 : Permit"));
    for (const char* const text : {"", "SetEOL", "ParseIntoHeader=1,", "ParseIntoHeader=1,SetEOL"}) {
        EXPECT_EQ(parser->optionParser(text), -1);
        EXPECT_STREQ(tp::te_geterror(), "Invalid option syntax") << text;
    }
    EXPECT_EQ(parser->optionParser("AllowVerboseToken=1,NoSuch=2,ParseIntoHeader=0"), -1);
    EXPECT_STREQ(tp::te_geterror(), "Invalid option name");
    EXPECT_THAT(pullAll(frameOf("BID=1|5=IBM")), ElementsAre("symbol=IBM 8:1 #18"));
}

TEST_F(ParserTest, ErrorTextShowsTheFrameAndStaysInItsBuffer) {
    (void)pullAll(frameOf("1=x"));
    EXPECT_STREQ(tp::te_geterror(), "Parser error around pos 8('x'): Invalid value\n"
                                    "<0x04> <0x00><0x00><0x00><0x03>1=x<0x03>");
    (void)pullAll(frameOf("2=" + std::string(20000, '\x01') + "|1=x"));
    EXPECT_LT(std::string(tp::te_geterror()).size(), 4096U);
    EXPECT_THAT(tp::te_geterror(), HasSubstr("<0x01><0x01>"));
}

/// Heap allocations of 100 frames in one stream, after a first one.
std::size_t allocationsFor(Parser& parser, const std::string& body) {
    std::string stream;
    for (int i = 0; i < 100; ++i)
        stream += frameOf(body);
    const auto pullAll = [&parser](std::string_view bytes) {
        parser.push(bufref(bytes.data(), bytes.size()));
        for (int count = 0;; ++count) {
            Message message;
            if (parser.pull(&message) != 0)
                return count;
        }
    };
    EXPECT_EQ(pullAll(frameOf(body)), 1);
    const std::size_t before = allocationsOfThisThread();
    EXPECT_EQ(pullAll(stream), 100);
    return allocationsOfThisThread() - before;
}

TEST_F(ParserTest, AllocatesNothingAfterTheFirstMessageOfItsSize) {
    const auto bodyOf = [](int pairs, std::size_t text) {
        std::string body = "5=IBM|4=37|2=" + std::string(text, 'x');
        for (int i = 1; i < pairs; ++i)
            body += i % 2 == 0 ? "|7=167.42" : "|1=29000";
        return body + "|2=" + std::string(text, 'y');
    };
    EXPECT_EQ(allocationsFor(*parser, "777=unknown|1="), 0U);
    for (const bool inFrame : {true, false}) {
        parser->setTextsInFrame(inFrame);
        for (const int pairs : {31, 32, 33, 64, 256})
            for (const std::size_t text : {8U, 62U, 1000U, 20000U})
                EXPECT_EQ(allocationsFor(*parser, bodyOf(pairs, text)), 0U)
                    << pairs << ' ' << text << ' ' << inFrame;
    }
}

/// The frames that a lazy parser has read into the message, and their numbers.
class LazyValues : public testing::Test {
protected:
    LazyValues() {
        parser->setTextsInFrame(true);
        parser->setLazyValues(true);
        read("1=17|7=1.5|2=text|8=-0.25|1=-9|5026=12");
    }
    void read(const std::string& body) {
        frame = frameOf(body);
        EXPECT_EQ(parser->parseFrame(bufref(frame.data(), frame.size()), &message), 0);
        EXPECT_EQ(message.pairs[0].s.buf, frame.data() + 8) << "nothing is left undecoded";
    }
    void forgetFrame() { std::fill(frame.begin(), frame.end(), '?'); }
    [[nodiscard]] Token* token(int number) const { return map.lookupTokenViaNum(number); }

    TestMap map;
    std::unique_ptr<Parser> parser = Parser::alloc("kvn", &map, 1 << 16);
    std::string frame;
    Message message;
};

TEST_F(LazyValues, AreDecodedForWhoeverIsHandedAPair) {
    const Message& constant = message;
    EXPECT_EQ(constant.readPair(0).i, 17);
    EXPECT_EQ(message.pairs[0].s.buf, frame.data() + 8) << "a mere reader changes nothing";
    EXPECT_EQ(constant.pair(0)->i, 17);
    EXPECT_EQ(message.findPair(token(7))->d, 1.5);
    EXPECT_EQ(constant.findPair(token(8))->d, -0.25);
    EXPECT_EQ(describe(message), "[tag] 1:17 7:1.5 2:'text' 8:-0.25 1:-9 5026:12");
    message.pair(0)->setI(token(1), 18);
    EXPECT_EQ(message.readPair(0).i, 18);
}

TEST_F(LazyValues, StayRightWhenPairsComeAndGo) {
    message.insertPair(0)->setI(token(1), 1);
    EXPECT_EQ(describe(message), "[tag] 1:1 1:17 7:1.5 2:'text' 8:-0.25 1:-9 5026:12");
    read("1=17|7=1.5|8=2");
    message.popPair();
    message.addPair()->setI(token(1), 4);
    EXPECT_EQ(describe(message), "1:17 7:1.5 1:4");
    read("1=17|7=1.5|8=2");
    EXPECT_EQ(message.pair(0)->i, 17);
    message.removePair(0);
    EXPECT_EQ(describe(message), "7:1.5 8:2");
    // More than are ever left undecoded, and one that is not as usual among them.
    std::string body = "1=1", expected = "1:1";
    for (int i = 0; i < 200; ++i) {
        body += i == 150 ? "|7=" : "|7=" + std::to_string(i);
        expected += i == 150 ? " 5004:7" : " 7:" + std::to_string(i);
    }
    read(body);
    EXPECT_EQ(describe(message), expected);
}

TEST_F(LazyValues, OutliveTheFrameInCopies) {
    Message copy;
    copy.deepCopy(&message);
    copy.isTagPresent = 1;
    message.copyStrings();
    forgetFrame();
    EXPECT_EQ(describe(copy), "[tag] 1:17 7:1.5 2:'text' 8:-0.25 1:-9 5026:12");
    EXPECT_EQ(describe(message), describe(copy));
}

TEST_F(ParserTest, TextsStandInTheFrameOnlyWhereThatIsWanted) {
    const std::string original = frameOf("5=IBM|2=" + std::string(100, 'x') + "|777=unknown|1=1|2=end");
    for (const BodyParserForm& form : formsHere()) {
        for (const bool inFrame : {false, true}) {
            std::string frame = original;
            KVNParse parse;
            ASSERT_EQ(parse.setMetaMap(&map), 0);
            parse.setTextsInFrame(inFrame);
            Message message;
            ASSERT_EQ(parse.parseWith(form.parse, bufref(frame.data(), frame.size()), &message), 0);
            const auto isInFrame = [&frame](bufref text) {
                return text.buf >= frame.data() && text.end() <= frame.data() + frame.size();
            };
            EXPECT_EQ(isInFrame(message.symbol), inFrame) << form.name;
            for (const int pair : {0, 2, 4})
                EXPECT_EQ(isInFrame(message.pair(pair)->s), inFrame) << form.name << ' ' << pair;
        }
    }
}

} // namespace
