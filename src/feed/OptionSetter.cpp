#include "feed/OptionSetter.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <utility>
#include <vector>

#include <feed/Error.h>
#include <tp/NearestName.h>

#include "config/ParameterTable.h"
#include "feed/FeedOptionTable.h"
#include "feed/FeedParameters.h"
#include "feed/OptionValue.h"

namespace tivra_internal {
namespace {

/// What a name may be called in an error: one that a hostile file gives may be of any length.
constexpr std::size_t kLongestShownName = 60;

[[nodiscard]] std::string shownName(std::string_view name) {
    std::string shown(name.substr(0, kLongestShownName));
    std::replace_if(
        shown.begin(), shown.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, '?');
    return shown;
}

[[nodiscard]] const FeedOptionInfo* findOption(std::string_view name) {
    for (const FeedOptionInfo& option : kFeedOptions)
        if (name == option.name)
            return &option;
    return nullptr;
}

[[noreturn]] void refuseUnknown(std::string_view name) {
    const std::string shown = shownName(name);
    tp::NearestName nearest(shown);
    for (const FeedOptionInfo& option : kFeedOptions)
        nearest.offer(option.name);
    offerParameters(nearest);
    refuseOption(std::string("there is no option ").append(shown), "the nearest is " + nearest.best());
}

[[nodiscard]] std::vector<std::string> hostsOf(std::string_view text) {
    std::vector<std::string> hosts;
    while (!text.empty()) {
        const std::string_view host = text.substr(0, text.find(','));
        checkHost(host);
        hosts.emplace_back(host);
        text.remove_prefix(std::min(text.size(), host.size() + 1));
    }
    return hosts;
}

[[nodiscard]] std::map<std::string, std::string> natOf(std::string_view text) {
    std::map<std::string, std::string> pairs;
    while (!text.empty()) {
        const std::string_view pair = text.substr(0, text.find(','));
        text.remove_prefix(std::min(text.size(), pair.size() + 1));
        const std::size_t sign = pair.find('=');
        if (sign == std::string_view::npos)
            refuseOption(std::string("nat has ").append(shownName(pair)) + " in it, which is no pair",
                         "give hub=local, two addresses");
        pairs.emplace(pair.substr(0, sign), pair.substr(sign + 1));
    }
    return pairs;
}

void checkText(std::string_view name, std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) < ' ')
            refuseOption(std::string("there is a control character in the ").append(name));
}

} // namespace

void refuseOptionAt(std::string_view where, std::string_view cause, std::string advice) {
    refuseOption(std::string(where).append(": ").append(cause), std::move(advice));
}

void OptionSetter::set(std::string_view name, std::string_view text, std::string_view where, Form form) {
    try {
        setByName(name, text, form);
    } catch (const tivra::Error& error) {
        refuseOptionAt(where, error.cause(), error.advice());
    }
}

bool OptionSetter::hasPassword() const {
    return m_names.count("password") != 0;
}

void OptionSetter::setByName(std::string_view name, std::string_view text, Form form) {
    if (const FeedOptionInfo* const option = findOption(name)) {
        if (form == Form::List && option->type != FeedOptionType::Hosts)
            refuseOption(std::string(name).append(" has one value"), "give no list");
        note(option->name);
        setOption(*option, text);
        return;
    }
    const NamedParameter parameter = findParameter(name);
    if (parameter.info == nullptr)
        refuseUnknown(name);
    if (form == Form::List)
        refuseOption(std::string(name).append(" has one value"), "give no list");
    checkParameter(*parameter.info, text);
    note(parameter.info->name);
    // The application may have used the other spelling.
    std::erase_if(m_options.parameters,
                  [&](const auto& entry) { return findParameter(entry.first).info == parameter.info; });
    m_options.parameters[parameter.info->name] = text;
}

void OptionSetter::note(const std::string& name) {
    if (!m_names.insert(name).second)
        refuseOption(name + " is given twice", "give it once");
}

void OptionSetter::setOption(const FeedOptionInfo& option, std::string_view text) {
    const OptionRange range{option.minimum, option.maximum};
    const auto time = [&] { return parseTime(option.name, text, range); };
    checkText(option.name, text);
    switch (option.option) {
    case FeedOption::Hosts:
        m_options.hosts = hostsOf(text);
        break;
    case FeedOption::Backups:
        m_options.backups = hostsOf(text);
        break;
    case FeedOption::User:
        m_options.user = text;
        break;
    case FeedOption::Password:
        m_options.password = std::string(text);
        m_options.onPassword = nullptr;
        break;
    case FeedOption::PasswordFile:
        m_options.password = tivra::Password();
        m_options.onPassword = [path = std::string(text)](const std::string&) {
            return tivra::Password::fromFile(path);
        };
        break;
    case FeedOption::LogFile:
        m_options.logFile = text;
        break;
    case FeedOption::LogDebug:
        m_options.logDebug = parseBool(option.name, text);
        break;
    case FeedOption::OpenTimeout:
        m_options.openTimeout = time();
        break;
    case FeedOption::RequestTimeout:
        m_options.requestTimeout = time();
        break;
    case FeedOption::CloseTimeout:
        m_options.closeTimeout = time();
        break;
    case FeedOption::SlowCallback:
        m_options.slowCallback = time();
        break;
    case FeedOption::LatencySampling:
        m_options.latencySampling = static_cast<unsigned>(parseWhole(option.name, text, range));
        break;
    case FeedOption::MinHubs:
        m_options.minHubs = static_cast<int>(parseWhole(option.name, text, range));
        break;
    case FeedOption::RetryFirst:
        m_options.retry.first = time();
        break;
    case FeedOption::RetryLongest:
        m_options.retry.longest = time();
        break;
    case FeedOption::RetryJitter:
        m_options.retry.jitterPercent = static_cast<int>(parseWhole(option.name, text, range));
        break;
    case FeedOption::Nat:
        m_options.nat = natOf(text);
        break;
    }
}

} // namespace tivra_internal
