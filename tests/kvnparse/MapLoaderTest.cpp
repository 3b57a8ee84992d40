#include "ParserTestKit.h"

#include "kvnparse/DataMap.h"
#include "kvnparse/MapLoader.h"

#include <tp/te_error.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using namespace KVNAPI;
using kvnparse_test::contentOf;

/// The map that comes of a text, or the error and what the map had by then.
std::string loaded(std::string_view text) {
    DataMap map;
    tp::te_seterror("");
    testing::internal::CaptureStderr();
    const int result = loadMap(&map, text.data(), static_cast<int>(text.size()));
    const std::string printed = testing::internal::GetCapturedStderr();
    if (result == 0)
        return printed + contentOf(map);
    std::string error = tp::te_geterror();
    // What the command language refuses is printed, what its parser refuses is not.
    if (printed.empty())
        error = "unprinted: " + error.substr(0, error.find('\n'));
    else
        EXPECT_EQ(printed, error + '\n');
    return error + "\n" + contentOf(map);
}

TEST(MapLoader, LoadsWhatTheLinesSay) {
    const std::string longest(64, 'N');
    const struct {
        const char* what;
        std::string text;
        std::string expected;
    } rows[] = {
        {"no text", "", ""},
        {"storages and flags",
         "cmd=AddToken|name=A|token=1|storage=int|hidden=1|passthrough=0\n"
         "cmd=AddToken|name=B.C|token=-2|storage=double|normalize=7|passthrough=-1\n"
         "token=2147483647|storage=string|name=D E|cmd=AddToken\n",
         "-2 B.C d through normal\n1 A i hidden\n2147483647 D E s\n"},
        {"a last line without its end",
         "cmd=AddToken|name=A|token=1|storage=int\ncmd=AddShortName|name=A|shortname=a", "1 A i short a\n"},
        {"the longest names",
         "cmd=AddToken|name=" + longest + "|token=1|storage=int\ncmd=AddShortName|name=" + longest +
             "|shortname=" + std::string(64, 's') + "\n",
         "1 " + longest + " i short " + std::string(64, 's') + "\n"},
        {"what older files have beside",
         "cmd=AddToken|name=A|token=1|storage=int|source=1|price=0|assumeI=1|volComp=1|DDFvolComp=1|"
         "marketToken=3|parser=p|direction=d|id=4|alttoken=5|whatever=x|4711=y\n",
         "1 A i\n"},
        {"other commands", "cmd=AddEverything|name=A\ncmd=\ncmd=AddTokens\ncmd=addtoken\n", ""},
        {"numbers of the command language", "3=AddToken|4=A|5=1|6=int\n", "1 A i\n"},
        {"the first of several counts", "cmd=AddToken|name=A|name=B|token=1|token=2|storage=int|cmd=No\n",
         "1 A i\n"},
        {"a line longer than the parser's buffer",
         "cmd=AddToken|name=A|token=1|storage=int|parser=" + std::string(70000, 'x') + "\n", "1 A i\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(loaded(row.text), row.expected) << row.what;
}

TEST(MapLoader, StopsAtTheLineThatIsWrong) {
    const std::string tooLong(65, 'N');
    const struct {
        std::string line;
        std::string error;
    } faults[] = {
        {"name=X", "No load command found"},
        {"cmd=AddToken", "No name definition in token add command"},
        {"cmd=AddToken|name=" + tooLong + "|token=9|storage=int",
         "Name definition too long in token add command"},
        {"cmd=AddToken|name=X|storage=int", "No id definition in token add command"},
        {"cmd=AddToken|name=X|token=|storage=int", "No id definition in token add command"},
        {"cmd=AddToken|name=X|token=4294967297|storage=int", "Id definition too large in token add command"},
        {"cmd=AddToken|name=X|token=-2147483649|storage=int", "Id definition too large in token add command"},
        {"cmd=AddToken|name=X|token=9", "No storage definition in token add command"},
        {"cmd=AddToken|name=X|token=9|storage=float", "Unknown storage definition in token add command"},
        {"cmd=AddToken|name=X|token=9|storage=int\r", "Unknown storage definition in token add command"},
        {"cmd=AddToken|name=X|token=9|storage=int|normalize=1", "Token X set to normalize but not double"},
        {"cmd=AddToken|name=FIRST|token=9|storage=int", "Duplicate token name FIRST"},
        {"cmd=AddToken|name=X|token=1|storage=int", "Duplicate token id 1"},
        {"cmd=AddShortName|shortname=x", "No name definition in short name add command"},
        {"cmd=AddShortName|name=" + tooLong + "|shortname=x",
         "Name definition too long in short name add command"},
        {"cmd=AddShortName|name=X|shortname=x", "Token not found in short name add command"},
        {"cmd=AddShortName|name=FIRST", "No short name definition in short name add command"},
        {"cmd=AddShortName|name=FIRST|shortname=" + tooLong, "Short name too long in short name add command"},
        {"", "unprinted: Parser error around pos 0(0x0a): Invalid token"},
        {"# a remark", "unprinted: Parser error around pos 0('#'): Invalid token"},
        {"cmd=AddToken|name=X|token=nine|storage=int",
         "unprinted: Parser error around pos 26('n'): Invalid value"},
        {"cmd=AddToken|", "unprinted: Parser error around pos 13(0x0a): Invalid token"},
    };
    const std::string before = "cmd=AddToken|name=FIRST|token=1|storage=int\n"
                               "cmd=AddShortName|name=FIRST|shortname=f\n";
    for (const auto& fault : faults) {
        const std::string expected = fault.error + "\n" + loaded(before);
        EXPECT_EQ(loaded(before + fault.line + "\ncmd=AddToken|name=LAST|token=2|storage=int\n"), expected);
        if (!fault.line.empty()) {
            EXPECT_EQ(loaded(before + fault.line), expected) << "without the end of its line";
        }
    }
    DataMap map;
    EXPECT_EQ(loadMapText(&map, before + "cmd=\nname=X\ncmd=\n").line, 4);
}

} // namespace
