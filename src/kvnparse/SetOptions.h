#pragma once

#include <tp/te_error.h>

#include <new>
#include <string>
#include <string_view>

namespace KVNAPI {

/// The text front end of setOption for parsers and encoders: a list of name=value items separated by commas.
/// The first item that is refused ends the walk with its result. The text "help" asks for the option of that
/// name.
template<class Target>
[[nodiscard]] int setOptions(Target& target, const char* text) {
    if (std::string_view(text) == "help")
        return target.setOption("help", "");
    std::string items;
    try {
        items = text;
    } catch (const std::bad_alloc&) {
        tp::te_error("Memory alloc error");
        return -1;
    }
    char* item = items.data();
    for (bool more = true; more;) {
        char* end = item;
        char* value = nullptr;
        for (; *end != '\0' && *end != ','; ++end) {
            if (*end == '=' && value == nullptr) {
                *end = '\0';
                value = end + 1;
            }
        }
        if (value == nullptr) {
            tp::te_error("Invalid option syntax");
            return -1;
        }
        more = *end == ',';
        *end = '\0';
        if (const int result = target.setOption(item, value); result != 0)
            return result;
        item = end + 1;
    }
    return 0;
}

} // namespace KVNAPI
