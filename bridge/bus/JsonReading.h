#pragma once

#include "bus/BusError.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tivra_bus {

/// Reads members of an object that may hold anything. `place` says which one in messages.
/// @throws BatchError where a member isn't there or isn't what was wanted
class JsonReading {
public:
    using Json = nlohmann::ordered_json;

    JsonReading(std::string_view text, std::string place) : m_place(std::move(place)) {
        if (countKeys(text) > kMostKeys)
            throw BatchError(fmt::format("{}: at most {} members were wanted", m_place, kMostKeys));
        m_object = Json::parse(text, nullptr, false);
        if (!m_object.is_object())
            throw BatchError(m_place + ": a JSON object was wanted");
    }

    [[nodiscard]] const Json& object() const { return m_object; }

    [[nodiscard]] const Json* find(const char* name) const {
        const auto found = m_object.find(name);
        return found == m_object.end() ? nullptr : &*found;
    }
    [[nodiscard]] std::string text(const char* name) const {
        const Json* const value = find(name);
        if (value == nullptr || !value->is_string())
            fail(name, "a text");
        return value->get<std::string>();
    }
    [[nodiscard]] std::string textOr(const char* name, const char* other) const {
        return find(name) == nullptr ? other : text(name);
    }
    /// A whole number from 0 to `most`.
    [[nodiscard]] std::uint64_t number(const char* name, std::uint64_t most = UINT64_MAX) const {
        const Json* const value = find(name);
        if (value == nullptr || !value->is_number_unsigned() || value->get<std::uint64_t>() > most)
            fail(name, "a whole number in its range");
        return value->get<std::uint64_t>();
    }
    [[noreturn]] void fail(const char* name, const char* wanted) const {
        throw BatchError(fmt::format("{}: \"{}\": {} was wanted", m_place, name, wanted));
    }

private:
    /// Each member is compared with all before it.
    static constexpr std::size_t kMostKeys = 4096;

    /// At least as many as there are members.
    [[nodiscard]] static std::size_t countKeys(std::string_view text) {
        std::size_t count = 0;
        for (std::size_t at = text.find("\":"); at != std::string_view::npos; at = text.find("\":", at + 2))
            ++count;
        return count;
    }

    std::string m_place;
    Json m_object;
};

} // namespace tivra_bus
