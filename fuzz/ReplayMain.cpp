// Runs a fuzz target over the files of its corpus, for builds without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

/// Runs one file, and each shorter form of it that stops at a power of two: input that ends early.
bool replay(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return false;
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const auto run = [&bytes](std::size_t size) {
        // A block of the exact size shows any read past the input.
        const std::vector<std::uint8_t> input(bytes.begin(),
                                              bytes.begin() + static_cast<std::ptrdiff_t>(size));
        LLVMFuzzerTestOneInput(input.data(), input.size());
    };
    for (std::size_t size = 0; size < bytes.size(); size = size * 2 + 1)
        run(size);
    run(bytes.size());
    return true;
}

int replayAll(int argc, char** argv) {
    std::size_t files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const fs::directory_entry& entry : fs::directory_iterator(argv[i])) {
            if (!replay(entry.path())) {
                std::fprintf(stderr, "cannot read %s\n", entry.path().c_str());
                return 1;
            }
            ++files;
        }
    }
    std::printf("%zu inputs replayed\n", files);
    return files == 0 ? 1 : 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return replayAll(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}
