// Arbitrary files through the reader of captures: as they are, with their checksums made right, or one block
// of arbitrary content. What was read is written and read again.
#include "FuzzCheck.h"
#include "kvnparse/Deflater.h"

#include <capture/CaptureReader.h>
#include <capture/CaptureWriter.h>
#include <capture/Checksum.h>

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

namespace {

using namespace tivra_capture;

/// Values of the first byte of an input; any other leaves the bytes as they are.
enum Mode : unsigned { CONTENT = 2, REPAIR = 3 };

/// The path of a file without a place in the file system.
std::string memoryFile() {
    return "/proc/self/fd/" + std::to_string(memfd_create("capture", MFD_CLOEXEC));
}

bool hasWord(std::string_view file, std::size_t at, std::string_view word) {
    return at <= file.size() && file.substr(at, word.size()) == word;
}

void setChecksum(std::string& file, std::size_t at, std::size_t from, std::size_t size) {
    std::string sum;
    appendNumber(sum, checksum(std::string_view(file).substr(from, size)), 4);
    file.replace(at, 4, sum);
}

/// Makes every checksum right that can be found by walking from block to block.
void repair(std::string& file) {
    std::size_t at = kFileHeaderSize;
    while (hasWord(file, at, kBlockMagic) && file.size() - at >= kBlockHeaderSize) {
        const std::size_t length = numberAt(file, at + 4, 4);
        if (length > file.size() - at - kBlockHeaderSize)
            break;
        setChecksum(file, at + 24, at + kBlockHeaderSize, length);
        setChecksum(file, at + 28, at, 28);
        at += kBlockHeaderSize + length;
    }
    if (file.size() < 44 || !hasWord(file, file.size() - 8, kTrailerMagic))
        return;
    const std::size_t end = file.size() - kTrailerSize;
    if (const std::uint64_t index = numberAt(file, end + 4, 8); index < end)
        setChecksum(file, end, index, end - index);
}

/// A file of one block, which claims to hold so many messages.
std::string fileOf(std::string_view content, std::uint64_t messages) {
    const std::string data = kvnparse_test::Deflater()(content, Z_FINISH);
    std::string file(kFileMagic);
    appendNumber(file, VERSION, 4);
    appendNumber(file, 0, 4);
    file += kBlockMagic;
    appendNumber(file, data.size(), 4);
    appendNumber(file, content.size(), 4);
    appendNumber(file, messages, 4);
    file +=
        std::string(content.substr(0, 8)) + std::string(8 - std::min<std::size_t>(8, content.size()), '\0');
    file += "sums....";
    file += data;
    repair(file);
    return file;
}

struct Content {
    std::string messages; ///< before the fault, if there is one
    std::int64_t lastTime = 0;
    bool isSound = false;
    bool isComplete = false;
};

void readRest(CaptureReader& reader, Content& content, CaptureWriter* copy = nullptr) {
    Message message;
    while (reader.next(message)) {
        content.lastTime = message.nanoseconds;
        content.messages += std::to_string(message.nanoseconds) + "/" + std::string(message.body) + "\n";
        if (copy != nullptr)
            copy->add(message);
    }
}

Content read(const std::string& path, CaptureWriter* copy = nullptr) {
    Content content;
    try {
        CaptureReader reader(path);
        content.isComplete = reader.isComplete();
        readRest(reader, content, copy);
        content.isSound = true;
    } catch (const CaptureError& error) {
        if (!hasWord(error.what(), 0, path + ": "))
            fuzz::expectEqual("error", error.what(), "one that names the file");
    }
    return content;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path = memoryFile(), copy = memoryFile();
    fuzz::Input input(data, size);
    const unsigned mode = input.byte();
    const unsigned messages = mode == CONTENT ? input.byte() : 0;
    std::string file = mode == CONTENT ? fileOf(input.rest(), messages) : std::string(input.rest());
    if (mode == REPAIR)
        repair(file);
    std::ofstream(path, std::ios::binary) << file;
    CaptureWriter writer(copy);
    const Content content = read(path, &writer);
    writer.finish();
    const Content again = read(copy);
    fuzz::expectEqual("what was written again", again.messages, content.messages);
    if (!again.isSound || !again.isComplete)
        fuzz::expectEqual("the copy", "broken or cut off", "whole");
    if (content.isSound && !content.messages.empty()) {
        CaptureReader reader(path);
        reader.seek(content.lastTime);
        Content some;
        readRest(reader, some);
        // From a moment on come the messages from the start of a block.
        if (some.messages.empty() || !content.messages.ends_with(some.messages))
            fuzz::expectEqual("from a moment on", some.messages, content.messages);
    }
    return 0;
}
