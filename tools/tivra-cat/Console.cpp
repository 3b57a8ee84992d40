#include "Console.h"

#include "common/Printable.h"

#include <fmt/format.h>

#include <cstdio>

namespace tivra_cat {

void Console::line(const std::string& text) {
    clearProgress();
    fmt::print(stderr, "tivra-cat: {}\n", tivra_tools::printable(text));
    std::fflush(stderr);
}

void Console::block(const std::string& text) {
    clearProgress();
    fmt::print(stderr, "{}", tivra_tools::printableLines(text));
    std::fflush(stderr);
}

void Console::progress(const std::string& text) {
    if (!m_showsProgress)
        return;
    fmt::print(stderr, "\r{}\x1b[K", tivra_tools::printable(text));
    std::fflush(stderr);
    m_hasProgress = true;
}

void Console::clearProgress() {
    if (m_hasProgress)
        fmt::print(stderr, "\r\x1b[K");
    m_hasProgress = false;
}

} // namespace tivra_cat
