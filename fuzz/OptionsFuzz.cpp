// Arbitrary texts as options of a feed and as the configuration of a hub: they are taken, or refused with the
// place. What a hub's configuration says is written and read again.
#include "FuzzCheck.h"

#include <feed/Error.h>
#include <feed/FeedOptions.h>
#include <tivra_sim/GroupConfig.h>
#include <tivra_sim/HubConfig.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace {

/// Values of the first byte of an input.
enum Mode : unsigned { TOML, JSON, URL, HUB, GROUP, MODES };

/// A file whose name says what is in it.
std::string fileFor(const char* ending) {
    return "/tmp/tivra-options-fuzz-" + std::to_string(::getpid()) + ending;
}

void readFeed(unsigned mode, const std::string& text) {
    try {
        if (mode == URL) {
            static_cast<void>(tivra::FeedOptions::fromUrl(text));
            return;
        }
        const std::string path = fileFor(mode == TOML ? ".toml" : ".json");
        std::ofstream(path, std::ios::binary) << text;
        try {
            static_cast<void>(tivra::FeedOptions::fromFile(path));
        } catch (...) {
            ::unlink(path.c_str());
            throw;
        }
        ::unlink(path.c_str());
    } catch (const tivra::Error& error) {
        if (error.code() != tivra::Error::Code::InvalidOption || error.cause().empty())
            fuzz::expectEqual("an error", error.what(), "one about an option");
    }
}

template<class Config>
void readConfig(const std::string& text) {
    std::string written;
    try {
        written = Config::fromJson(text).toJson();
    } catch (const tivra_sim::ConfigError& error) {
        if (*error.what() == '\0')
            fuzz::expectEqual("an error", "", "a text");
        return;
    }
    fuzz::expectEqual("the configuration", Config::fromJson(written).toJson(), written);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned mode = input.byte() % MODES;
    const std::string text(input.rest());
    if (mode == HUB)
        readConfig<tivra_sim::HubConfig>(text);
    else if (mode == GROUP)
        readConfig<tivra_sim::GroupConfig>(text);
    else
        readFeed(mode, text);
    return 0;
}
