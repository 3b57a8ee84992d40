// Arbitrary files through the reader of captures: as they are, with their checksums made right, or built from
// blocks that lie about themselves. Judged by a reader that has the whole file before it, and what was read
// is written and read again.
#include "FuzzCheck.h"

#include <capture/CaptureReader.h>
#include <capture/CaptureWriter.h>

#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Messages = std::vector<std::pair<std::int64_t, std::string>>;

/// Bits of the first byte of an input.
enum Mode : unsigned {
    RAW = 1,    ///< the bytes are the file itself
    REPAIR = 2, ///< with right checksums
    INDEX = 4,  ///< a built file has its end
    DAMAGE = 8, ///< one bit of a built file is wrong
    CUT = 16,   ///< a built file is cut off
    STORED = 32 ///< blocks are not compressed, which leaves bytes to a fuzzer
};

/// Bits of the byte that a block of a built file begins with.
enum Lie : unsigned {
    LENGTH = 3, ///< so many bytes too many
    FEWER = 4,  ///< one message less is counted
    MORE = 8,
    BODY = 16,      ///< each body is told longer by up to 15
    AT_OFFSET = 32, ///< in the index
    AT_COUNT = 64,
    AT_TIME = 128
};

/// A file without a place in the file system.
class MemoryFile {
public:
    MemoryFile()
        : m_fd(memfd_create("capture", MFD_CLOEXEC)), m_path("/proc/self/fd/" + std::to_string(m_fd)) {
        if (m_fd < 0)
            std::abort();
    }
    ~MemoryFile() { close(m_fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    void fill(std::string_view bytes) const {
        if (ftruncate(m_fd, 0) != 0 ||
            pwrite(m_fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
            std::abort();
    }
    [[nodiscard]] const std::string& path() const { return m_path; }

private:
    int m_fd;
    std::string m_path;
};

std::string number(std::uint64_t value, unsigned bytes) {
    std::string text;
    while (bytes-- > 0)
        text.push_back(static_cast<char>(value >> 8 * bytes & 0xff));
    return text;
}

std::uint64_t numberAt(std::string_view bytes, std::size_t at, unsigned size) {
    std::uint64_t value = 0;
    for (const char byte : bytes.substr(at, size))
        value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

std::uint32_t crcOf(std::string_view bytes) {
    return static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

bool hasWord(std::string_view file, std::size_t at, std::string_view word) {
    return at <= file.size() && file.substr(at, word.size()) == word;
}

std::string deflated(const std::string& bytes, int level) {
    std::string out(compressBound(bytes.size()), '\0');
    uLongf size = out.size();
    if (compress2(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(bytes.data()),
                  bytes.size(), level) != Z_OK)
        std::abort();
    return out.substr(0, size);
}

/// Makes every checksum right that can be found by walking from block to block.
void repair(std::string& file) {
    std::size_t at = 16;
    while (hasWord(file, at, "BLCK") && file.size() - at >= 32) {
        const std::size_t length = numberAt(file, at + 4, 4);
        if (length > file.size() - at - 32)
            break;
        file.replace(at + 24, 4, number(crcOf(std::string_view(file).substr(at + 32, length)), 4));
        file.replace(at + 28, 4, number(crcOf(std::string_view(file).substr(at, 28)), 4));
        at += 32 + length;
    }
    if (file.size() < 44 || !hasWord(file, file.size() - 8, "TIVRAEND"))
        return;
    const std::size_t end = file.size() - 20;
    const std::uint64_t index = numberAt(file, end + 4, 8);
    if (index < end)
        file.replace(end, 4, number(crcOf(std::string_view(file).substr(index, end - index)), 4));
}

/// A file of blocks that the input describes: each of a byte that says how its header, its messages and the
/// index lie about it, and of messages (length, time, body) up to one of the length 255.
std::string build(fuzz::Input& input, unsigned mode) {
    std::string file = "TIVRACAP" + number(1, 4) + number(0, 4);
    std::string entries;
    std::size_t blocks = 0;
    while (!input.rest().empty()) {
        const unsigned lies = input.byte();
        std::string content;
        std::uint64_t first = 0;
        std::size_t count = 0;
        for (unsigned length = input.byte(); length != 255 && !input.rest().empty(); length = input.byte()) {
            std::uint64_t time = 0;
            for (int i = 0; i < 8; ++i)
                time = time << 8 | input.byte();
            first = count++ == 0 ? time : first;
            std::string body;
            while (body.size() < length && !input.rest().empty())
                body += static_cast<char>(input.byte());
            content += number(time, 8) +
                       number(body.size() + ((lies & BODY) != 0 ? input.byte() & 15U : 0U), 4) + body;
        }
        const std::string data = deflated(content, (mode & STORED) != 0 ? 0 : 1);
        count += static_cast<std::size_t>((lies & MORE) != 0) - static_cast<std::size_t>((lies & FEWER) != 0);
        entries += number(file.size() + static_cast<std::size_t>((lies & AT_OFFSET) != 0), 8) +
                   number(first + static_cast<std::uint64_t>((lies & AT_TIME) != 0), 8) +
                   number(count + static_cast<std::size_t>((lies & AT_COUNT) != 0), 4);
        ++blocks;
        std::string header = "BLCK" + number(data.size(), 4) + number(content.size() + (lies & LENGTH), 4) +
                             number(count, 4) + number(first, 8) + number(crcOf(data), 4);
        header += number(crcOf(header), 4);
        file += header + data;
    }
    if ((mode & INDEX) != 0) {
        const std::string index = "INDX" + number(blocks, 4) + entries;
        file += index + number(crcOf(index), 4) + number(file.size(), 8) + "TIVRAEND";
    }
    const std::size_t place = crcOf(file) % file.size();
    if ((mode & DAMAGE) != 0)
        file[place] = static_cast<char>(file[place] ^ static_cast<char>(1U << blocks % 8));
    if ((mode & CUT) != 0)
        file.resize(file.size() - place);
    return file;
}

/// What stands in a file, by the description of the format.
struct Content {
    Messages messages;                                        ///< before the fault, if there is one
    std::vector<std::pair<std::int64_t, std::size_t>> blocks; ///< when they begin, and with which message
    bool isSound = false;
    bool isComplete = false;
};

struct Place {
    std::size_t offset;
    std::uint64_t time;
    std::uint64_t count;
};

/// Whether the header of a block is right in itself.
bool isHeader(std::string_view file, std::size_t at) {
    if (!hasWord(file, at, "BLCK") || file.size() - at < 32 ||
        numberAt(file, at + 28, 4) != crcOf(file.substr(at, 28)))
        return false;
    const std::uint64_t length = numberAt(file, at + 8, 4);
    const std::uint64_t count = numberAt(file, at + 12, 4);
    return length <= 524300 && numberAt(file, at + 4, 4) <= compressBound(length) && count != 0 &&
           count <= length / 12;
}

/// The blocks as the index lists them.
bool listed(std::string_view file, std::vector<Place>& places) {
    const std::size_t end = file.size() - 20;
    const std::uint64_t begin = numberAt(file, end + 4, 8);
    if (begin < 16 || begin > end || end - begin < 8)
        return false;
    const std::string_view index = file.substr(begin, end - begin);
    if (numberAt(file, end, 4) != crcOf(index) || !hasWord(index, 0, "INDX") ||
        index.size() != 8 + numberAt(index, 4, 4) * 20)
        return false;
    std::uint64_t free = 16;
    for (std::size_t at = 8; at < index.size(); at += 20) {
        const std::uint64_t offset = numberAt(index, at, 8);
        if (offset < free || offset > begin || begin - offset < 32)
            return false;
        places.push_back({offset, numberAt(index, at + 8, 8), numberAt(index, at + 16, 4)});
        free = offset + 32;
    }
    return true;
}

/// The whole blocks of a file without an index, which end where the file does or at an index that is cut.
bool walked(std::string_view file, std::vector<Place>& places) {
    std::size_t at = 16;
    while (at < file.size()) {
        const std::string_view rest = file.substr(at);
        if (std::string_view("INDX").substr(0, rest.size()) == rest.substr(0, 4) ||
            (rest.size() < 32 && std::string_view("BLCK").substr(0, rest.size()) == rest.substr(0, 4)))
            return true;
        if (!isHeader(file, at))
            return false;
        const std::uint64_t length = numberAt(file, at + 4, 4);
        if (length > rest.size() - 32)
            return true;
        places.push_back({at, numberAt(file, at + 16, 8), numberAt(file, at + 12, 4)});
        at += 32 + length;
    }
    return true;
}

bool takeBlock(std::string_view file, const Place& place, Messages& messages) {
    if (!isHeader(file, place.offset) || numberAt(file, place.offset + 16, 8) != place.time ||
        numberAt(file, place.offset + 12, 4) != place.count)
        return false;
    const std::size_t size = numberAt(file, place.offset + 4, 4);
    const std::string_view data = file.substr(place.offset + 32, size);
    if (data.size() != size || crcOf(data) != numberAt(file, place.offset + 24, 4))
        return false;
    // One byte more, to see what doesn't end where it should.
    std::string text(numberAt(file, place.offset + 8, 4) + 1, '\0');
    uLongf length = text.size();
    if (uncompress(reinterpret_cast<Bytef*>(text.data()), &length,
                   reinterpret_cast<const Bytef*>(data.data()), size) != Z_OK ||
        length + 1 != text.size())
        return false;
    text.pop_back();
    std::string_view rest(text);
    for (std::uint64_t i = 0; i < place.count; ++i) {
        const std::uint64_t body = rest.size() < 12 ? 0 : numberAt(rest, 8, 4);
        if (rest.size() < 12 || body > rest.size() - 12 || body > 262144)
            return false;
        messages.emplace_back(static_cast<std::int64_t>(numberAt(rest, 0, 8)), rest.substr(12, body));
        rest.remove_prefix(12 + body);
    }
    return rest.empty();
}

Content referenceRead(std::string_view file) {
    Content content;
    if (file.size() < 16 || file.substr(0, 16) != "TIVRACAP" + number(1, 4) + number(0, 4))
        return content;
    std::vector<Place> places;
    content.isComplete = file.size() >= 44 && hasWord(file, file.size() - 8, "TIVRAEND");
    if (!(content.isComplete ? listed(file, places) : walked(file, places)))
        return {};
    content.isSound = true;
    for (const Place& place : places) {
        content.blocks.emplace_back(static_cast<std::int64_t>(place.time), content.messages.size());
        content.isSound = content.isSound && takeBlock(file, place, content.messages);
    }
    return content;
}

void readRest(tivra_capture::CaptureReader& reader, Messages& messages) {
    tivra_capture::Message message;
    while (reader.next(message))
        messages.emplace_back(message.nanoseconds, message.body);
}

Content read(const std::string& path) {
    Content content;
    try {
        tivra_capture::CaptureReader reader(path);
        content.isComplete = reader.isComplete();
        readRest(reader, content.messages);
        content.isSound = true;
    } catch (const tivra_capture::CaptureError& error) {
        if (std::string_view(error.what()).substr(0, path.size() + 2) != path + ": ")
            fuzz::expectEqual("error", error.what(), "one that names the file");
    }
    return content;
}

std::string textOf(const Content& content) {
    std::string text = std::string(content.isSound ? "sound" : "broken") +
                       (content.isComplete ? ", complete:" : ", cut off:");
    for (const auto& [time, body] : content.messages)
        text += " " + std::to_string(time) + "/" + body;
    return text;
}

/// From a moment on come the messages from the start of a block: the last before one that begins later.
void checkSeek(const std::string& path, const Content& expected, std::int64_t time) {
    tivra_capture::CaptureReader reader(path);
    tivra_capture::Message message;
    if (!reader.next(message))
        std::abort();
    reader.seek(time);
    Content some;
    readRest(reader, some.messages);
    std::size_t from = 0;
    for (std::size_t i = 1; i < expected.blocks.size() && expected.blocks[i].first <= time; ++i)
        from = expected.blocks[i].second;
    const Messages rest(expected.messages.begin() + static_cast<std::ptrdiff_t>(from),
                        expected.messages.end());
    fuzz::expectEqual("from a moment on", textOf(some), textOf({rest, {}, false, false}));
}

void checkRewritten(const Content& content) {
    static const MemoryFile copy;
    {
        tivra_capture::CaptureWriter writer(copy.path());
        for (const auto& [time, body] : content.messages) {
            writer.add({time, body});
            if (body.size() % 7 == 3)
                writer.flush();
        }
        writer.finish();
    }
    fuzz::expectEqual("what was written again", textOf(read(copy.path())),
                      textOf({content.messages, {}, true, true}));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile memory;
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    std::string file = (mode & RAW) != 0 ? std::string(input.rest()) : build(input, mode);
    if ((mode & (RAW | REPAIR)) == (RAW | REPAIR))
        repair(file);
    memory.fill(file);
    const Content content = read(memory.path());
    Content expected = referenceRead(file);
    // Whether a file has its end isn't told of one that can't even be opened.
    if (!content.isSound && !expected.isSound)
        expected.isComplete = content.isComplete;
    fuzz::expectEqual("content", textOf(content), textOf(expected));
    if (content.isSound && !content.messages.empty())
        checkSeek(memory.path(), expected, content.messages[size % content.messages.size()].first);
    checkRewritten(content);
    return 0;
}
