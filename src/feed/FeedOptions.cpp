#include <feed/FeedOptions.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iterator>
#include <utility>

#include <unistd.h>

#include "feed/OptionFile.h"
#include "feed/OptionSetter.h"
#include "feed/OptionUrl.h"

namespace tivra {
namespace {

using tivra_internal::OptionSetter;

constexpr std::string_view kPrefix = "TIVRA_";
constexpr std::string_view kUrl = "url";
/// Variables of the simulator and of its test kit.
constexpr std::string_view kOthers[] = {"sim_", "testkit_"};

[[nodiscard]] bool isOption(std::string_view name) {
    return name != kUrl &&
           std::none_of(std::begin(kOthers), std::end(kOthers),
                        [name](std::string_view other) { return name.substr(0, other.size()) == other; });
}

} // namespace

FeedOptions& FeedOptions::set(std::string_view name, std::string_view value) {
    OptionSetter(*this).set(name, value, "FeedOptions::set");
    return *this;
}

FeedOptions& FeedOptions::applyUrl(std::string_view url) {
    FeedOptions changed = *this;
    OptionSetter setter(changed);
    tivra_internal::readUrl(url, setter);
    return *this = std::move(changed);
}

FeedOptions& FeedOptions::applyFile(const std::string& path) {
    FeedOptions changed = *this;
    OptionSetter setter(changed);
    tivra_internal::readOptionFile(path, setter);
    return *this = std::move(changed);
}

FeedOptions& FeedOptions::applyEnvironment() {
    FeedOptions changed = *this;
    if (const char* const url = std::getenv("TIVRA_URL")) {
        OptionSetter setter(changed);
        tivra_internal::readUrl(url, setter);
    }
    OptionSetter setter(changed);
    for (char** entry = ::environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view variable(*entry);
        const std::size_t sign = variable.find('=');
        if (sign == std::string_view::npos || variable.substr(0, kPrefix.size()) != kPrefix)
            continue;
        std::string name(variable.substr(kPrefix.size(), sign - kPrefix.size()));
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (isOption(name))
            setter.set(name, variable.substr(sign + 1),
                       std::string("the environment's ").append(variable.substr(0, sign)));
    }
    return *this = std::move(changed);
}

FeedOptions FeedOptions::fromUrl(std::string_view url) {
    FeedOptions options;
    options.applyUrl(url);
    return options;
}

FeedOptions FeedOptions::fromFile(const std::string& path) {
    FeedOptions options;
    options.applyFile(path);
    return options;
}

FeedOptions FeedOptions::fromEnvironment() {
    FeedOptions options;
    options.applyEnvironment();
    return options;
}

} // namespace tivra
