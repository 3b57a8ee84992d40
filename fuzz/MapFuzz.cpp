// Arbitrary texts through the loader of map files. A whole text must do what its lines do one by one.
#include "FuzzCheck.h"
#include "kvnparse/ParserTestKit.h"

#include "kvnparse/DataMap.h"
#include "kvnparse/MapLoader.h"

#include <tp/te_error.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using namespace KVNAPI;

/// Loads without the report on standard error; a sanitizer's report goes another way.
int loadQuietly(DataMap& map, std::string_view text) {
    static std::FILE* const nowhere = std::fopen("/dev/null", "w");
    std::FILE* const shown = stderr;
    stderr = nowhere;
    fuzz::ExactBytes bytes(text);
    const int result = loadMap(&map, bytes.data(), static_cast<int>(bytes.size()));
    stderr = shown;
    return result;
}

int loadLineByLine(DataMap& map, std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        if (loadQuietly(map, text.substr(0, end == std::string_view::npos ? end : end + 1)) != 0)
            return -1;
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    DataMap whole;
    DataMap lines;
    const int result = loadQuietly(whole, text);
    if (result != 0 && *tp::te_geterror() == '\0')
        std::abort();
    fuzz::expectEqual("result", std::to_string(result), std::to_string(loadLineByLine(lines, text)));
    fuzz::expectEqual("map of all lines", kvnparse_test::contentOf(whole), kvnparse_test::contentOf(lines));
    return 0;
}
