#include "ToolFixture.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// What a program can't do is one line on standard error, and the documented exit code.
class Usage : public ToolFixture {
protected:
    struct Mistake {
        const char* arguments;
        int code;
        const char* reason;
    };

    void expectRefused(const std::string& program, const std::string& begin,
                       const std::vector<Mistake>& mistakes) {
        for (const Mistake& mistake : mistakes) {
            const std::string line = program + " " + mistake.arguments;
            expect({{line, mistake.code, "", AllOf(StartsWith(begin), HasSubstr(mistake.reason))}});
        }
    }
};

TEST_F(Usage, OfTivraCat) {
    expectRefused(
        "tivra-cat", "tivra-cat: ",
        {{"$AT", 2, "subcommand"},
         {"$AT --bogus snapshot IBM", 2, "--bogus"},
         {"-u demo snapshot IBM", 2, "--host"},
         {"-H 127.0.0.1:9 snapshot IBM", 2, "--user"},
         {"-H 127.0.0.1 -u demo snapshot IBM", 2, "\"127.0.0.1\" is no host"},
         {"-H 127.0.0.1:65536 -u demo snapshot IBM", 2, "is no host"},
         {"-H no.such.invalid:9 -u demo snapshot IBM", 2, "no.such.invalid"},
         {"-H 127.0.0.1:9 -B localhost:9 -u demo snapshot IBM", 2, "backup"},
         {"$AT subscribe", 2, "name a symbol"},
         {"$AT snapshot 'IBM|5=SPY'", 2, "is no symbol"},
         {"$AT snapshot 100:123456789012345678901234567890123", 2, "32"},
         {"$AT list everything", 2, "\"everything\""},
         {"$AT list tokenz", 2, "did you mean tokens?"},
         {"--hoost $HUB -u demo snapshot IBM", 2, "there is no option --hoost; did you mean --host?"},
         {"$AT snapshoot IBM", 2, "there is no command snapshoot; did you mean snapshot?"},
         {"$AT subscribe --snapsho IBM", 2, "there is no option --snapsho; did you mean --snapshot?"},
         {"$AT snapshot --countt=3 IBM", 2, "there is no option --countt; did you mean --count?"},
         {"-H [::1]:9 -u demo snapshot IBM", 2, "IPv6 address, and IPv4 is spoken here"},
         {"-H ::1:9 -u demo snapshot IBM", 2, "IPv6 address, and IPv4 is spoken here"},
         {"$AT -o raw --every 1 subscribe IBM", 2, "--every"},
         {"$AT --stats-file f subscribe IBM", 2, "--stats-file requires --stats"},
         {"$AT --stats 1 --stats-label 0=a subscribe IBM", 2, "NAME=VALUE"},
         {"$AT --stats-label a=b subscribe IBM", 2, "--stats-label requires --stats or --stats-listen"},
         {"$AT --stats-listen localhost:65536 subscribe IBM", 2,
          "\"localhost:65536\" is nothing to listen at"},
         {"$AT -F BID//ASK snapshot IBM", 2, "--fields"},
         {"$AT -f /no/such/file snapshot", 2, "/no/such/file"},
         {"$AT --password-file /no/such/file snapshot IBM", 2, "/no/such/file"},
         {"$AT snapshot 100:IBM >/dev/full", 8, "cannot write the output: No space left on device"},
         {"$AT --record none/file subscribe 100:IBM", 8, "cannot write the capture none/file"},
         // The disk is full at the first byte.
         {"$AT --record /dev/full subscribe 100:IBM", 8,
          "cannot write the capture /dev/full: No space left on device"}});
}

TEST_F(Usage, OfTivraHub) {
    writeFile("bad.json", R"({"playback": {"sped": 1}})");
    writeFile("broken", "TIVRACAP\0\0\0\1");
    expectRefused("tivra-hub", "",
                  {{"--bogus", 2, "--bogus"},
                   {"--playbak day", 2, "did you mean --playback?"},
                   {"--topology ring", 2, "ring not in"},
                   {"--user eve", 2, "needs --password-env or --password-file"},
                   {"--user eve --password-env TIVRA_NO_SUCH_VARIABLE", 2, "TIVRA_NO_SUCH_VARIABLE"},
                   {"-c bad.json", 2, "\"playback.sped\": unknown key"},
                   {"--group /no/such/group.json", 2, "/no/such/group.json"},
                   {"--group " TIVRA_GROUP_FILE " --port 1", 2, "excludes"},
                   {"--bind nowhere", 3, "\"nowhere\""},
                   {"--load 10", 2, "SYMBOLS:RATE"},
                   {"--load 0:5", 2, "SYMBOLS:RATE"},
                   {"--load 10:5:0", 2, "SYMBOLS:RATE"},
                   {"--load 10:nan", 2, "SYMBOLS:RATE"},
                   {"--load 9:9 --replay broken", 2, "excludes"},
                   {"--drop-slow -f " TIVRA_SAMPLE_DAY, 2, "--drop-slow needs a pace"},
                   {"--start-when 0", 2, "--start-when"},
                   {"--playback /no/such/day", 4, "/no/such/day"},
                   {"--replay broken", 4, "broken: not a capture"}});
}

TEST_F(Usage, OfTivraWire) {
    const std::string text = "cmd=AddToken|name=SYMBOL.TICKER|token=5|storage=string\n";
    writeFile("frames", std::string("\x04 \0\0\0\5"
                                    "5=IBM\x03",
                                    12));
    writeFile("half", text);
    writeFile("wrong",
              "cmd=AddToken|name=A|token=5|storage=int\ncmd=AddToken|name=B|token=6|storage=float\n");
    writeFile("map", text + "cmd=AddToken|name=UNKNOWNTOKEN|token=45028|storage=string\n"
                            "cmd=AddToken|name=UNKNOWNSVALUE|token=45029|storage=string\n"
                            "cmd=AddToken|name=TOKEN.DEL|token=5004|storage=int\n");
    expectRefused("tivra-wire", "tivra-wire: ",
                  {{"", 2, "subcommand"},
                   {"-m map chek", 2, "there is no command chek; did you mean check?"},
                   {"-m map check --simbol IBM", 2, "did you mean --symbol?"},
                   {"check", 2, "no dictionary named"},
                   {"-m map", 2, "subcommand"},
                   {"-m /no/such check", 2, "the dictionary cannot be loaded: cannot open /no/such"},
                   {"-m /tmp check", 2, "the dictionary cannot be loaded: cannot read /tmp"},
                   {"-m wrong check", 2, "wrong:2: Unknown storage definition in token add command"},
                   {"-m map -m half check", 2, "half:1: Duplicate token id 5"},
                   {"-m half check", 2, "Token UNKNOWNTOKEN not found; add it to a map file"},
                   {"--hub 127.0.0.1:0 -u demo check", 2, "\"127.0.0.1:0\" is no host"},
                   {"--hub $HUB check", 2, "no user named"},
                   {"--hub $HUB -u demo --password x check", 2, "readable by everybody"},
                   {"--hub $HUB -u demo --password-file - check", 2, "standard input cannot be"},
                   {"-m map --token NONE check", 2, "no map file has the token NONE"},
                   {"-m map convert --to kvn --blanks", 2, "--blanks"},
                   {"-m map convert --level 10", 2, "--level"},
                   {"-m map check /no/such", 4, "cannot open /no/such"},
                   {"-m map check /tmp", 4, "cannot read /tmp"},
                   {"-m map convert -o frames frames", 2, "frames is the input and the output"},
                   {"-m map convert -o /no/such/out", 5, "cannot write /no/such/out"},
                   {"-m map convert -o /dev/full frames", 5, "cannot write /dev/full"}});
    EXPECT_EQ(std::filesystem::file_size(directory + "/frames"), 12U);
}

} // namespace
