// The parser's results, for each of its forms that this processor runs.
#include "ParserTestKit.h"

#include "kvnparse/BodyParser.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Parser.h"

#include <tp/te_error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using namespace kvnparse_test;
using KVNAPI::BodyParserForm;
using KVNAPI::bufref;
using KVNAPI::DataMap;
using KVNAPI::KVNParse;
using KVNAPI::Message;
using KVNAPI::Parser;
using KVNAPI::Token;
using testing::HasSubstr;
using testing::StartsWith;

std::vector<BodyParserForm> formsHere() {
    std::vector<BodyParserForm> forms;
    for (const BodyParserForm* form = KVNAPI::BODY_PARSER_FORMS; form->name != nullptr; ++form)
        if (form->runsHere())
            forms.push_back(*form);
    return forms;
}

/// What became of a frame: the message as text, or the first line of the error.
std::string outcome(KVNParse& parse, KVNAPI::BodyParser form, bufref frame) {
    Message message;
    if (parse.parseWith(form, frame, &message) == 0)
        return describe(message);
    const std::string error = tp::te_geterror();
    return error.substr(0, error.find('\n'));
}

struct BodyCase {
    const char* fault;
    std::string body;
    std::string expected;
};

void PrintTo(const BodyCase& row, std::ostream* out) {
    *out << row.fault;
}

class ParserBody : public testing::TestWithParam<BodyCase> {};

TEST_P(ParserBody, IsReadAsTold) {
    TestMap map;
    KVNParse parse;
    ASSERT_EQ(parse.setMetaMap(&map), 0);
    const BodyCase& row = GetParam();
    for (const BodyParserForm& form : formsHere()) {
        SCOPED_TRACE(form.name);
        EXPECT_EQ(outcome(parse, form.parse, bufref(frameOf(row.body).data(), row.body.size() + 7)),
                  row.expected);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Values, ParserBody,
    testing::Values(
        BodyCase{"plain pairs", "1=17|2=ABC|7=1.5|8=-0.25", "1:17 2:'ABC' 7:1.5 8:-0.25"},
        BodyCase{"signs of integers", "1=-5|1=+6|20000=-0|1=007", "1:-5 1:6 20000:0 1:7"},
        BodyCase{"integers beyond 64 bits wrap", "1=18446744073709551621|1=-9223372036854775808",
                 "1:5 1:-9223372036854775808"},
        BodyCase{"long integers", "1=1381152600123456|1=138115260012345678|1=12345678|1=123456789",
                 "1:1381152600123456 1:138115260012345678 1:12345678 1:123456789"},
        BodyCase{"doubles without all their parts", "7=12.|7=.5|7=-.5|7=+3|7=.|7=-0",
                 "7:12 7:0.5 7:-0.5 7:3 7:0 7:-0"},
        BodyCase{"long doubles", "7=1381152600.123456|7=12345678901234567.5|7=0.12345678901234567",
                 "7:1381152600.123456 7:12345678901234568 7:0.12345678901234569"},
        BodyCase{"the sum of the parts, not the nearest double", "7=0.3|7=8.41|8=5.56",
                 "7:0.30000000000000004 7:8.4100000000000001 8:5.5600000000000005"},
        BodyCase{"deleted values", "5026=|1=2|7=", "[tag] 5004:5026 1:2 5004:7"},
        BodyCase{"empty text is a value", "2=|2=", "2:'' 2:''"},
        BodyCase{"text with any byte", "2=a=b=c|2=\x80\xff 1.2|1=3", "2:'a=b=c' 2:'\x80\xff 1.2' 1:3"},
        BodyCase{"unknown numbers",
                 "999999=ABC|1=5|6553=", "45028:'999999' 45029:'ABC' 1:5 45028:'6553' 45029:''"},
        BodyCase{"numbers that would wrap into known ones",
                 "4294967297=A|18446744073709551617=B|2147483648=C|2147483647=D|00000000000000000001=7",
                 "45028:'4294967297' 45029:'A' 45028:'18446744073709551617' 45029:'B' 45028:'2147483648' "
                 "45029:'C' 45028:'2147483647' 45029:'D' 1:7"},
        BodyCase{"numbers of any size", "70001=far|20000=9|45028=x", "70001:'far' 20000:9 45028:'x'"}));

INSTANTIATE_TEST_SUITE_P(
    Headers, ParserBody,
    testing::Values(
        BodyCase{"all header fields", "5=IBM|4=37|3=12|9=N|6=1|10=66|1=1",
                 "symbol=IBM source=37 permission=12 market=N refresh precision=66 1:1"},
        BodyCase{"second occurrences", "5=IBM|5=AIG|4=1|4=2|3=3|3=4",
                 "symbol=IBM source=1 permission=3 5:'AIG' 4:2 3:4"},
        BodyCase{"an empty symbol is none", "5=|5=IBM", "symbol=IBM"},
        BodyCase{"empty sources read as 0", "4=|3=|1=1", "source=0 permission=0 1:1"},
        BodyCase{"signed sources", "4=-7|3=+9", "source=-7 permission=9"},
        BodyCase{"a refresh that is not 1", "6=0|6=11|6=|6=1", "refresh 6:0 6:11 5004:6"},
        BodyCase{"precision codes", "10=129|1=1", "precision=129 1:1"},
        BodyCase{"an unknown precision", "10=1", ""},
        BodyCase{"status and tag stay pairs", "5001=0|5026=18", "[status] [tag] 5001:0 5026:18"},
        BodyCase{"alternate identifiers", "11=a|12=b|13=c|14=d|15=e|16=f",
                 "[altindex] 11:'a' 12:'b' 13:'c' 14:'d' 15:'e' 16:'f'"},
        BodyCase{"a separator for a part code", "9=|\x03", "Parser error around pos 9(0x03): Data after ETX"},
        BodyCase{"a part code of two bytes", "9=AB|1=1", "Parser error around pos 9('B'): Invalid value"},
        BodyCase{"an empty part code", "9=|1=1", "Parser error around pos 9('1'): Invalid value"},
        BodyCase{"no part code before the end",
                 "1=1|9=", "Parser error around pos 12(0x03): Invalid value"}));

INSTANTIATE_TEST_SUITE_P(
    Refusals, ParserBody,
    testing::Values(
        BodyCase{"empty body", "", "Parser error around pos 6(0x03): Invalid token"},
        BodyCase{"trailing separator", "1=1|", "Parser error around pos 10(0x03): Invalid token"},
        BodyCase{"no number", "=1", "Parser error around pos 6('='): Invalid token"},
        BodyCase{"a name", "BID=1", "Parser error around pos 6('B'): Invalid token"},
        BodyCase{"signed number of a token", "1=1|+1=1", "Parser error around pos 10('+'): Invalid token"},
        BodyCase{"no equals sign", "1=1|17|1=1", "Parser error around pos 10('1'): Invalid token"},
        BodyCase{"no field at all", "1=1|17", "Parser error around pos 10('1'): Invalid token"},
        BodyCase{"fraction of an integer", "1=1.5", "Parser error around pos 9('.'): Invalid value"},
        BodyCase{"letters in numbers", "1=12a4|1=1", "Parser error around pos 10('a'): Invalid value"},
        BodyCase{"letters behind a fraction", "7=1.25x", "Parser error around pos 12('x'): Invalid value"},
        BodyCase{"two points", "7=1.2.3", "Parser error around pos 11('.'): Invalid value"},
        BodyCase{"sign alone", "1=-", "Parser error around pos 8('-'): Invalid value"},
        BodyCase{"sign and point", "7=-.", "Parser error around pos 8('-'): Invalid value"},
        BodyCase{"sign behind digits", "7=1-", "Parser error around pos 9('-'): Invalid value"},
        BodyCase{"two signs", "1=--1", "Parser error around pos 8('-'): Invalid value"},
        BodyCase{"blanks", "1= 1", "Parser error around pos 8(' '): Invalid value"},
        BodyCase{"eighteen fraction digits", "7=1.123456789012345678",
                 "Parser error around pos 8('1'): Invalid value"},
        BodyCase{"an end byte in text",
                 "2=AB\x03"
                 "CD",
                 "Parser error around pos 10(0x03): Data after ETX"},
        BodyCase{"an end byte in a number", "1=5\x03|1=6",
                 "Parser error around pos 9(0x03): Data after ETX"}));

/// A body of random fields, some of them damaged.
std::string randomBody(std::mt19937& random) {
    static const char* const NUMBERS[] = {"1",     "2",   "3",  "4",         "5",          "6",    "7",
                                          "8",     "9",   "10", "11",        "5001",       "5026", "20000",
                                          "70001", "777", "01", "123456789", "4294967297", ""};
    static const char BYTES[] = "0123456789.+-=|\x03"
                                "AZ \xfe";
    const auto below = [&random](std::size_t bound) { return random() % bound; };
    const auto digits = [&](std::size_t most) {
        std::string text;
        for (std::size_t count = below(most + 1); count > 0; --count)
            text += static_cast<char>('0' + below(10));
        return text;
    };
    std::string body;
    for (std::size_t fields = 1 + below(24); fields > 0; --fields) {
        body += NUMBERS[below(std::size(NUMBERS))];
        body += '=';
        switch (below(8)) {
        case 0: // bytes of any kind, up to lengths beyond the blocks that the vector forms look at
            for (std::size_t count = below(below(40) == 0 ? 1500 : 30); count > 0; --count)
                body += BYTES[below(sizeof BYTES - 1)];
            break;
        case 1:
            body.append(below(2) == 0 ? "-" : "+") += digits(5);
            break;
        case 2:
        case 3:
            body.append(digits(4)).append(".") += digits(6);
            break;
        case 4:
            body.append(digits(19)).append(".") += digits(19);
            break;
        case 5:
            body += digits(25);
            break;
        default:
            body += digits(4);
        }
        body += '|';
    }
    if (below(20) != 0)
        body.pop_back();
    while (below(4) == 0 && !body.empty())
        body[below(body.size())] = BYTES[below(sizeof BYTES - 1)];
    return body;
}

TEST(ParserForms, AgreeOnRandomFramesAndReadNothingOutsideThem) {
    TestMap map;
    KVNParse parse;
    ASSERT_EQ(parse.setMetaMap(&map), 0);
    GuardedBytes memory(1 << 16);
    const std::vector<BodyParserForm> forms = formsHere();
    std::mt19937 random(20131007);
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        // Damage makes most frames useless; every other one stays as its fields are.
        const std::string frame = frameOf(randomBody(random));
        for (const auto side : {GuardedBytes::END_AT_GUARD, GuardedBytes::START_AT_GUARD}) {
            const bufref placed = memory.place(frame, side);
            const std::string expected = outcome(parse, KVNAPI::parseBodyScalar, placed);
            accepted += expected.rfind("Parser error", 0) == 0 ? 0 : 1;
            for (const BodyParserForm& form : forms)
                ASSERT_EQ(outcome(parse, form.parse, placed), expected) << form.name << " on " << frame;
        }
    }
    EXPECT_GT(accepted, 2000) << "too few frames got to their end to say much";
}

TEST(ParserForms, AgreeOnDecimalsOfEveryShape) {
    TestMap map;
    KVNParse parse;
    ASSERT_EQ(parse.setMetaMap(&map), 0);
    for (std::size_t whole = 0; whole <= 18; ++whole) {
        for (std::size_t fraction = 0; fraction <= 18; ++fraction) {
            for (const char digit : {'0', '1', '5', '9'}) {
                const std::string text = std::string(whole, digit) + '.' + std::string(fraction, digit);
                const std::string frame = frameOf("2=a|7=" + text + "|7=-" + text + "|7=+" + text + "1|1=2");
                const bufref bytes(frame.data(), frame.size());
                const std::string expected = outcome(parse, KVNAPI::parseBodyScalar, bytes);
                for (const BodyParserForm& form : formsHere())
                    ASSERT_EQ(outcome(parse, form.parse, bytes), expected) << form.name << " on " << text;
            }
        }
    }
}

TEST(ParserForms, FollowChangesOfOptionsAndOfTheMap) {
    for (const BodyParserForm& form : formsHere()) {
        SCOPED_TRACE(form.name);
        TestMap map;
        KVNParse parse;
        ASSERT_EQ(parse.setMetaMap(&map), 0);
        const std::string frame = frameOf("5=IBM|9=N|5001=0|123=4");
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
        TestMap other;
        map.copy(&other);
        EXPECT_EQ(result(), "[status] 5:'IBM' 9:'N' 5001:0 45028:'123' 45029:'4'");
        TestMap third;
        ASSERT_EQ(parse.setMetaMap(&third), 0);
        EXPECT_EQ(result(), "[status] 5:'IBM' 9:'N' 5001:0 45028:'123' 45029:'4'");
    }
}

TEST(ParserForms, KeepFunctionsApartWhenACopiedMapRepeatsSerialIds) {
    TestMap full;
    DataMap bare;
    for (const char* const name : {"UNKNOWNTOKEN", "UNKNOWNSVALUE", "TOKEN.DEL", "ENUM.SRC.ID", "PERMISSION"})
        ASSERT_NE(bare.addToken(full.lookupTokenViaName(name)), nullptr);
    KVNParse first;
    // The tokens of a map that was bound have serial ids, which travel; its counter starts again.
    ASSERT_EQ(first.setMetaMap(&bare), 0);
    DataMap copied;
    copied.copy(&bare);
    ASSERT_NE(copied.addToken(full.lookupTokenViaName("PRODUCT.ROOT")), nullptr);
    Token late;
    late.kvnid = 300;
    late.name = "LATE";
    Token* const added = copied.addToken(&late);
    ASSERT_EQ(copied.createTokenSerialId(added), 0);
    KVNParse parse;
    ASSERT_EQ(parse.setMetaMap(&copied), 0);
    const std::string frame = frameOf("300=5|4=6|3=7|16=x");
    for (const BodyParserForm& form : formsHere())
        EXPECT_EQ(outcome(parse, form.parse, bufref(frame.data(), frame.size())),
                  "source=6 permission=7 [altindex] 300:5 16:'x'")
            << form.name;
}

/// One parser by name, fed with one text and pulled until it wants more.
std::vector<std::string> pullAll(Parser& parser, std::string_view bytes) {
    std::vector<std::string> results;
    parser.push(bufref(bytes.data(), bytes.size()));
    Message message;
    for (int result = parser.pull(&message); result != 1; result = parser.pull(&message)) {
        const std::string error = tp::te_geterror();
        results.push_back((result == 0 ? describe(message) : error.substr(0, error.find('\n'))) + " #" +
                          std::to_string(parser.msglen()));
    }
    return results;
}

TEST(Parser, BadBodyIsRefusedAndTheNextFrameStillParses) {
    TestMap map;
    const auto parser = Parser::alloc("kvn", &map, 4096);
    ASSERT_NE(parser, nullptr);
    EXPECT_THAT(pullAll(*parser, frameOf("1=1") + frameOf("") + frameOf("1=x") + frameOf("1=2")),
                testing::ElementsAre("1:1 #10", "Parser error around pos 6(0x03): Invalid token #0",
                                     "Parser error around pos 8('x'): Invalid value #0", "1:2 #10"));
    KVNAPI::bufref none;
    EXPECT_EQ(parser->pull(&none), -1);
}

TEST(Parser, VerboseLinesMixNamesAndNumbers) {
    TestMap map;
    const auto parser = Parser::alloc("vkvn", &map, 4096);
    ASSERT_NE(parser, nullptr);
    const std::string longName(255, 'N');
    EXPECT_THAT(
        pullAll(*parser, "SYMBOL.TICKER=IBM|PERMISSION=7|1=2\nNO.SUCH=5|2=\x03x\n" + longName + "=1\nN" +
                             longName + "=1\n=1\n\nPLAIN.TEXT\n" + std::string("PLAIN.TEXT\0X=1\n", 15)),
        testing::ElementsAre("symbol=IBM permission=7 1:2 #35", "45028:'NO.SUCH' 45029:'5' 2:'\x03x' #15",
                             "45028:'" + longName + "' 45029:'1' #258",
                             "Parser error around pos 0('N'): Invalid token #0",
                             "Parser error around pos 0('='): Invalid token #0",
                             "Parser error around pos 0(0x0a): Invalid token #0",
                             "Parser error around pos 0('P'): Invalid token #0",
                             std::string("45028:'PLAIN.TEXT\0X' 45029:'1' #15", 34)));
}

TEST(Parser, OptionsNeverLetItReadPastAFrame) {
    TestMap map;
    // Terminators that do not stand at the end, a header longer than the line.
    for (const char* const options :
         {"SetEOL=10", "SetEOL=124", "SetEOL=61", "SetEOL=49", "HasKVNHeader=0"}) {
        for (const char* const name : {"kvn", "vkvn"}) {
            const auto parser = Parser::alloc(name, &map, 4096);
            ASSERT_EQ(parser->optionParser(options), 0);
            GuardedBytes memory(4096);
            Message message;
            for (const std::string& bytes :
                 {frameOf("1=1"), frameOf("2=text"), frameOf("5=IBM"), frameOf("9=N"), std::string("2=A\n"),
                  std::string("1=12\n"), std::string("\n"), frameOf("7=1."), frameOf("6=1")}) {
                parser->reset();
                parser->push(memory.place(bytes, GuardedBytes::END_AT_GUARD));
                EXPECT_NE(parser->pull(&message), 2) << options;
            }
        }
    }
    const auto parser = Parser::alloc("vkvn", &map, 4096);
    ASSERT_EQ(parser->optionParser("HasKVNHeader=1"), 0);
    EXPECT_THAT(pullAll(*parser, "1=1\n"),
                testing::ElementsAre(StartsWith("Parser error around pos 4(end)")));
}

TEST(Parser, RefusesAMapWithoutTheTokensThatItNeedsAndKeepsTheOldOne) {
    DataMap empty;
    EXPECT_EQ(Parser::alloc("kvn", &empty, 4096), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Token UNKNOWNTOKEN not found");
    EXPECT_EQ(Parser::alloc("none", &empty, 4096), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Could not find option 'none'");
    TestMap map;
    const auto parser = Parser::alloc("kvn", &map, 4096);
    EXPECT_EQ(parser->setMetaMap(&empty), -1);
    EXPECT_THAT(pullAll(*parser, frameOf("1=1")), testing::ElementsAre("1:1 #10"));
}

TEST(Parser, OptionTextIsWalkedToTheFirstRefusal) {
    TestMap map;
    const auto parser = Parser::alloc("kvn", &map, 4096);
    EXPECT_EQ(parser->optionParser("help"), -1);
    EXPECT_THAT(tp::te_geterror(), StartsWith("\nAvailable options are:\n  AllowVerboseToken=0|1 : Permit"));
    for (const char* const text : {"", "SetEOL", "ParseIntoHeader=1,", "ParseIntoHeader=1,SetEOL"}) {
        EXPECT_EQ(parser->optionParser(text), -1);
        EXPECT_STREQ(tp::te_geterror(), "Invalid option syntax") << text;
    }
    EXPECT_EQ(parser->optionParser("AllowVerboseToken=1,NoSuch=2,ParseIntoHeader=0"), -1);
    EXPECT_STREQ(tp::te_geterror(), "Invalid option name");
    EXPECT_THAT(pullAll(*parser, frameOf("BID=1|5=IBM")), testing::ElementsAre("symbol=IBM 8:1 #18"));
}

TEST(ParserAbort, ErrorTextShowsTheFrameAndStaysInItsBuffer) {
    TestMap map;
    const auto parser = Parser::alloc("kvn", &map, 1 << 16);
    (void)pullAll(*parser, frameOf("1=x"));
    EXPECT_STREQ(tp::te_geterror(), "Parser error around pos 8('x'): Invalid value\n"
                                    "<0x04> <0x00><0x00><0x00><0x03>1=x<0x03>");
    (void)pullAll(*parser, frameOf("2=" + std::string(20000, '\x01') + "|1=x"));
    EXPECT_LT(std::string(tp::te_geterror()).size(), 4096U);
    EXPECT_THAT(tp::te_geterror(), HasSubstr("<0x01><0x01>"));
}

} // namespace
