// Writes the seeds of the fuzz targets: frames made from rows of the sample day, and the edges of the format.
#include "FuzzDictionary.h"

#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

/// The lines of the day behind its heading, each cut at its commas.
std::vector<std::vector<std::string>> readDay(const char* path) {
    const gzFile file = ::gzopen(path, "rb");
    if (file == nullptr)
        throw std::runtime_error("cannot open "s + path);
    std::string text;
    char block[65536];
    for (int count = 0; (count = ::gzread(file, block, sizeof block)) > 0;)
        text.append(block, static_cast<std::size_t>(count));
    ::gzclose(file);
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
        std::vector<std::string> cells;
        std::istringstream columns(line);
        for (std::string cell; std::getline(columns, cell, ',');)
            cells.push_back(cell);
        cells.resize(12);
        rows.push_back(std::move(cells));
    }
    return rows;
}

/// The fields of a row as a body, by number or by name.
std::string bodyOf(const std::vector<std::string>& row, bool names) {
    struct Column {
        const char* field;
        std::string value;
    };
    const Column columns[] = {{"SYMBOL.TICKER", row[1]},
                              {"ENUM.SRC.ID", "558"},
                              {"PERMISSION", "558"},
                              {"ENUM.DISPLAY.PRECISION", "68"},
                              {"PART.CODE", row[9]},
                              {"TRADE.TIME", row[0] + ".5"},
                              {"BID", row[3]},
                              {"BID.SIZE", row[4]},
                              {"ASK", row[5]},
                              {"ASK.SIZE", row[6]},
                              {"TRADE.PRICE", row[7]},
                              {"TRADE.SIZE", row[8]},
                              {"TRADE.CONDITION", row[10]},
                              {"QUERY.TAG", "18"}};
    std::string body;
    for (const Column& column : columns) {
        if (column.value.empty())
            continue;
        for (const fuzz::Field& field : fuzz::FIELDS) {
            if (field.name == std::string_view(column.field))
                body += (body.empty() ? "" : "|") + (names ? field.name : std::to_string(field.id)) + "=" +
                        column.value;
        }
    }
    return body;
}

std::string frameOf(std::string_view body) {
    std::string frame = "\x04 "s;
    for (const unsigned shift : {24u, 16u, 8u, 0u})
        frame += static_cast<char>(body.size() >> shift & 0xff);
    return frame.append(body) + '\x03';
}

/// The edges of the body format, one body each.
const std::string_view EDGE_BODIES[] = {
    "5026=17|16=ABC",
    "",
    "|",
    "5026=|10=1",
    "10=|11=|16=|5=|5001=|7=|8=|4=|3=",
    "16=x|",
    "999999=ABC",
    "4=558|4=559|3=1|3=2|5=IBM|5=MSFT",
    "11=1.5",
    "10=1.123456789012345678",
    "10=1.12345678901234567|12=-0.5|14=+.25|17=12.",
    "10=.|12=-|14=+",
    "11=-|13=+",
    "16=a\x03"
    "b",
    "9=QQ",
    "9=",
    "9=Q",
    "7=1|7=0|7=11",
    "8=131|8=-1|8=4294967360|8=40",
    "40=C|41=I|42=S|43=B|44=Q|45=P",
    "18446744073709551620=wrap|4294967300=wide|0000000005=IBM|2147483648=x",
    "5001=0|5026=18|5=BAC",
    "11=18446744073709551616|13=-9223372036854775808|15=99999999999999999999999999",
    "2000000000=1.25|2000000001=1.25",
    "16=0123456789012345678901234567890123456789012345678901234567890123456789",
    "16=12345678|11=12345678|11=123456789|11=1234567|10=1234567.8|10=12345678.12345678",
};

class Corpus {
public:
    explicit Corpus(const fs::path& folder) : m_folder(folder) { fs::create_directories(folder); }

    void add(const std::string& name, std::string_view bytes) const {
        std::ofstream file(m_folder / name, std::ios::binary);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!file)
            throw std::runtime_error("cannot write " + (m_folder / name).string());
    }

private:
    fs::path m_folder;
};

std::string numbered(const char* name, std::size_t number) {
    char text[32];
    std::snprintf(text, sizeof text, "%s-%02zu", name, number);
    return text;
}

void writeFramerSeeds(const Corpus& corpus, const std::vector<std::vector<std::string>>& rows) {
    for (std::size_t i = 0; i < 12; ++i) {
        const bool lines = i % 3 == 2;
        std::string stream;
        for (std::size_t n = 0; n < 3 + i; ++n) {
            const std::string body = bodyOf(rows[i * 997 + n], lines);
            stream += lines ? body + '\n' : frameOf(body);
        }
        // Every third stream is damaged: a byte, a length, a lost stretch.
        if (i % 6 == 1)
            stream[stream.size() / 2] = '\x04';
        if (i % 6 == 3)
            stream[5] = static_cast<char>(stream[5] + 1);
        if (i % 6 == 4)
            stream.erase(stream.size() / 3, 10);
        const char mode = static_cast<char>((lines ? 1 : 0) + 2 * (i % 2 + 2));
        corpus.add(numbered("day", i), std::string{mode, static_cast<char>(i)} + stream);
    }
    corpus.add("empty-body", "\x04\x01"s + frameOf("") + frameOf("1=\x04 \0\0\0\0\x03"s));
    corpus.add("length-wraps", "\x04\x02\x04 \xff\xff\xff\xf9"s + frameOf("5=x"));
    corpus.add("length-too-large",
               "\x02\x03\x04 \xff\xff\xff\xf8"s + std::string(80, '\x04') + frameOf("5=x"));
    corpus.add("wrong-end", "\x04\x04\x04 \0\0\0\1xy"s + frameOf("5=x"));
}

void writeParserSeeds(const Corpus& corpus, const std::vector<std::vector<std::string>>& rows) {
    for (std::size_t i = 0; i < 12; ++i) {
        const bool lines = i % 4 == 3;
        const char mode = static_cast<char>((lines ? 1 : 0) + 4 * (i % 8));
        std::string bodies;
        for (std::size_t n = 0; n < 4; ++n)
            bodies += (n == 0 ? ""s : "\0"s) + bodyOf(rows[i * 1499 + n], lines);
        corpus.add(numbered("day", i), mode + bodies);
    }
    std::string edges;
    for (std::size_t i = 0; i < std::size(EDGE_BODIES); ++i) {
        edges += "\0"s + std::string(EDGE_BODIES[i]);
        corpus.add(numbered("edge", i), "\0"s + std::string(EDGE_BODIES[i]));
    }
    // All edges twice through one parser, which has learnt their layouts the second time.
    corpus.add("edges", edges + edges);
    for (std::size_t i = 0; i < 4; ++i) {
        const bool lines = i % 2 == 1;
        std::string stream{static_cast<char>(lines ? 3 : 2), static_cast<char>(i)};
        for (std::size_t n = 0; n < 12; ++n) {
            const std::string body = bodyOf(rows[i * 4001 + n], lines);
            stream += lines ? body + '\n' : frameOf(body);
        }
        corpus.add(numbered("stream", i), stream);
    }
}

std::string deflated(std::string_view bytes) {
    std::string out(compressBound(bytes.size()), '\0');
    uLongf size = out.size();
    if (::compress(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(bytes.data()),
                   bytes.size()) != Z_OK)
        throw std::runtime_error("zlib failed");
    return out.substr(0, size);
}

void writeInflateSeeds(const Corpus& corpus, const std::vector<std::vector<std::string>>& rows) {
    const auto start = [](unsigned mode, std::size_t seed) {
        return std::string{static_cast<char>(mode), static_cast<char>(seed)};
    };
    // The pull (messages, bytes, a change), crossed with levels, flushes and damage.
    constexpr unsigned MODES[] = {0x00, 0x02, 0x04, 0x50, 0x62, 0x74, 0xa0, 0xb2, 0x28, 0x2a, 0x6c, 0x14};
    for (std::size_t i = 0; i < std::size(MODES); ++i) {
        std::string plain;
        for (std::size_t n = 0; n < 8; ++n)
            plain += frameOf(bodyOf(rows[i * 1201 + n], false));
        corpus.add(numbered("day", i), start(MODES[i], i) + plain);
    }
    const std::string frames = frameOf("5=IBM|11=17") + frameOf("16=x") + frameOf("11=3");
    for (const unsigned pull : {1U, 3U, 5U}) {
        corpus.add(numbered("raw", pull), start(pull, 2) + deflated(frames));
        corpus.add(numbered("behind-end", pull), start(pull, 2) + deflated(frames) + std::string(700, 'x'));
        corpus.add(numbered("many", pull), start(pull, 3) + deflated(frames + std::string(200000, '\4')));
    }
    corpus.add("needs-dictionary", start(1, 0) + "\x78\xbb\x06\x4a\x02\x2c"s);
    corpus.add("not-zlib", start(3, 0) + frames);
}

/// A message in the form that the encoders' target reads: header fields, then pairs by their place in its
/// list of tokens.
void writeEncoderSeeds(const Corpus& corpus, const std::vector<std::vector<std::string>>& rows) {
    const auto text = [](const std::string& bytes) { return static_cast<char>(bytes.size()) + bytes; };
    const auto number = [](std::int64_t value) {
        std::string bytes(1, '\5');
        for (const unsigned shift : {32u, 24u, 16u, 8u, 0u})
            bytes += static_cast<char>(value >> shift & 0xff);
        return bytes;
    };
    // Thirty tokens, of which kinds below 5 stand for header fields.
    const auto pair = [](int token) { return static_cast<char>(token < 5 ? token + 30 : token); };
    for (std::size_t i = 0; i < 16; ++i) {
        const std::vector<std::string>& row = rows[i * 1801];
        std::string fields = std::string(1, '\0') + number(558 + static_cast<int>(i)) + '\3' + text(row[1]);
        if (i % 3 == 0)
            fields += '\1' + number(i % 2 == 0 ? 7 : -123456789);
        if (i % 4 == 1)
            fields += "\2Q\4"s;
        for (int token = 0; token < 30; token += 1 + static_cast<int>(i % 4)) {
            fields += pair(token);
            const bool isDouble =
                token < 2 || token == 10 || token == 12 || token == 14 || token == 17 || token == 29;
            const bool isText = token == 6 || token == 9 || token == 16 || (token >= 18 && token <= 23) ||
                                token == 27 || token == 28;
            if (isText)
                fields += text(row[10]);
            else
                fields += (isDouble ? "\3"s : ""s) + number(std::atol(row[0].c_str()) * (token - 7));
        }
        const std::string start{static_cast<char>(i), static_cast<char>(i * 8), '\5'};
        corpus.add(numbered("day", i), start + fields);
    }
    corpus.add("nothing", "\0\xff\xff"s);
}

void writeMapSeeds(const Corpus& corpus) {
    static constexpr const char* STORAGES[] = {"int", "double", "string"};
    std::string whole;
    for (const fuzz::Field& field : fuzz::FIELDS) {
        whole += "cmd=AddToken|name=" + std::string(field.name) + "|token=" + std::to_string(field.id) +
                 "|storage=" + STORAGES[field.storage] + "|hidden=" + (field.id % 2 == 0 ? "1" : "0") +
                 "|passthrough=" + (field.id % 3 == 0 ? "1" : "0") + "\n";
        if (field.id < 16)
            whole += "cmd=AddShortName|name=" + std::string(field.name) +
                     "|shortname=" + static_cast<char>('a' + field.id) + "\n";
    }
    corpus.add("fields", whole);
    corpus.add("no-end",
               "cmd=AddToken|name=A|token=1|storage=double|normalize=1\ncmd=AddShortName|name=A|shortname=a");
    corpus.add(
        "older",
        "cmd=AddToken|name=A|token=-7|storage=int|source=1|price=2|assumeI=3|volComp=4|DDFvolComp=5|"
        "marketToken=6|parser=p|direction=d|id=9|alttoken=10|what=x\ncmd=Other\n3=AddToken|4=B|5=2|6=int\n");
    static constexpr const char* FAULTS[] = {"",
                                             "name=A",
                                             "cmd=AddToken|name=A|token=|storage=int",
                                             "cmd=AddToken|name=A|token=9999999999|storage=int",
                                             "cmd=AddToken|name=A|token=1|storage=float",
                                             "cmd=AddToken|name=A|token=1|storage=int|normalize=1",
                                             "cmd=AddShortName|name=B|shortname=b",
                                             "cmd=AddShortName|name=BID|shortname=",
                                             "cmd=AddToken|name=BID|token=77|storage=int",
                                             "# a remark",
                                             "cmd=AddToken|name=A|token=x|storage=int"};
    for (std::size_t i = 0; i < std::size(FAULTS); ++i)
        corpus.add(numbered("fault", i), "cmd=AddToken|name=BID|token=10|storage=double\n"s + FAULTS[i] +
                                             "\ncmd=AddToken|name=ASK|token=12|storage=double\n");
}

/// Captures in the form that their target builds files from, and a file that has been written.
void writeCaptureSeeds(const Corpus& corpus, const std::vector<std::vector<std::string>>& rows) {
    const auto message = [](const std::string& body, unsigned second) {
        return static_cast<char>(body.size()) + "\x17\xab\xcd\xef\1\2"s + static_cast<char>(second) + '\0' +
               body;
    };
    // How files end, and what the second of two blocks lies about.
    constexpr unsigned MODES[] = {0x00, 0x04, 0x10, 0x14, 0x20, 0x24, 0x30, 0x34};
    constexpr unsigned LIES[] = {1, 4, 8, 16, 32, 64, 128};
    const auto add = [&](const std::string& name, unsigned mode, unsigned lie, std::size_t row) {
        std::string blocks(1, static_cast<char>(mode));
        for (std::size_t n = 0; n < 6; ++n) {
            if (n % 3 == 0)
                blocks += static_cast<char>(n == 3 ? lie : 0);
            blocks += message(bodyOf(rows[row + n], false), static_cast<unsigned>(n == 4 ? 1 : n));
            if ((lie & 16) != 0 && n >= 3)
                blocks += n == 5 ? '\x08' : '\0';
            if (n % 3 == 2)
                blocks += '\xff';
        }
        corpus.add(name, blocks);
    };
    for (std::size_t i = 0; i < std::size(MODES); ++i)
        add(numbered("blocks", i), MODES[i], 0, i * 1301);
    for (std::size_t i = 0; i < std::size(LIES); ++i)
        add(numbered("lie", i), i % 2 == 0 ? 0x04 : 0x24, LIES[i], i * 1709);
    for (std::size_t i = 0; i < 12; ++i)
        add(numbered("damage", i), 0x0c, 0, i * 2003);
    const std::string block = "BLCK\0\0\0\x1a\0\0\0\x0f\0\0\0\1\0\0\0\0\0\0\0\7\0\0\0\0\0\0\0\0"s +
                              "\x78\1\1\x0f\0\xf0\xff"s + "\0\0\0\0\0\0\0\7\0\0\0\3"s + "5=X" +
                              "\x01\xc4\0\xd5"s;
    const std::string head = "TIVRACAP\0\0\0\1\0\0\0\0"s;
    const std::string index = "INDX\0\0\0\1\0\0\0\0\0\0\0\x10\0\0\0\0\0\0\0\7\0\0\0\1"s;
    corpus.add("file", "\3" + head + block + index + "\0\0\0\0\0\0\0\0\0\0\0\x4aTIVRAEND"s);
    corpus.add("file-cut", "\3" + head + block + block + "BLCK");
    // The index names the first of two blocks twice.
    corpus.add("file-twice", "\3" + head + block + block + "INDX\0\0\0\2"s + index.substr(8) +
                                 index.substr(8) + "\0\0\0\0\0\0\0\0\0\0\0\x84TIVRAEND"s);
    corpus.add("file-unrepaired", "\1" + head + block);
    corpus.add("file-empty", "\3" + head);
    corpus.add("file-of-another-kind", "\1" + frameOf("5=IBM"));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s day.csv.gz corpus-folder\n", argv[0]);
        return 2;
    }
    try {
        const auto rows = readDay(argv[1]);
        if (rows.size() < 20000)
            throw std::runtime_error("too few rows");
        const fs::path folder = argv[2];
        writeCaptureSeeds(Corpus(folder / "CaptureFuzz"), rows);
        writeEncoderSeeds(Corpus(folder / "EncoderFuzz"), rows);
        writeFramerSeeds(Corpus(folder / "FramerFuzz"), rows);
        writeInflateSeeds(Corpus(folder / "InflateFuzz"), rows);
        writeMapSeeds(Corpus(folder / "MapFuzz"));
        writeParserSeeds(Corpus(folder / "ParserFuzz"), rows);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}
