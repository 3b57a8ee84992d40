// Runs a fuzz target over the files of its corpus and over changed copies of each, always the same ones, for
// builds without libFuzzer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<std::uint8_t>;

void run(const Bytes& bytes) {
    const Bytes exact(bytes.begin(), bytes.end()); // a block of the exact size shows any read past the input
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

/// Changes a few bytes, or repeats or drops some of them.
void damage(Bytes& bytes, std::mt19937& random) {
    static constexpr std::uint8_t SPECIAL[] = {0,   3,   4,   ' ', '|',  '=',  '-',
                                               '.', '0', '1', '9', '\n', 0x7F, 0xFF};
    for (auto count = 1 + random() % 4; count > 0 && !bytes.empty(); --count) {
        const std::size_t place = random() % bytes.size();
        const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(place);
        const auto end =
            at + static_cast<std::ptrdiff_t>(random() % std::min<std::size_t>(16, bytes.size() - place));
        switch (random() % 4) {
        case 0:
            *at ^= static_cast<std::uint8_t>(1U << random() % 8);
            break;
        case 1:
            bytes.erase(at, end);
            break;
        case 2: {
            const Bytes part(at, end);
            bytes.insert(at, part.begin(), part.end());
            break;
        }
        default:
            *at = SPECIAL[random() % sizeof SPECIAL];
        }
    }
}

/// Runs one file, each shorter form of it that stops at a power of two, the same bytes in other modes, which
/// most targets read from the first of them, and changed copies.
void replay(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit);
    const Bytes bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    for (std::size_t size = 0; size < bytes.size(); size = size * 2 + 1)
        run(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)));
    run(bytes);
    for (unsigned bit = 0; bit < 8 && !bytes.empty(); ++bit) {
        Bytes other = bytes;
        other.front() ^= static_cast<std::uint8_t>(1U << bit);
        run(other);
    }
    std::mt19937 random(20131007);
    for (int round = 0; round < 50; ++round) {
        Bytes changed = bytes;
        damage(changed, random);
        run(changed);
    }
}

} // namespace

int main(int argc, char** argv) {
    std::size_t files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const fs::directory_entry& entry : fs::directory_iterator(argv[i])) {
            replay(entry.path());
            ++files;
        }
    }
    std::printf("%zu inputs replayed\n", files);
    return files == 0 ? 1 : 0;
}
