#include <feed/Enumerations.h>

#include <unordered_map>

#include <feed/Record.h>
#include <feed/Snapshot.h>

namespace tivra_internal {

/// The texts of each field that has some, by the field's name: hubs may number it differently.
struct EnumerationTexts {
    using Texts = std::unordered_map<std::int64_t, std::string>;
    std::unordered_map<std::string, Texts> byField;

    [[nodiscard]] const Texts* find(const std::string& field) const {
        const auto found = byField.find(field);
        return found != byField.end() ? &found->second : nullptr;
    }
};

namespace {

constexpr std::string_view kNumber = "KVN.TOKEN.NUM";
constexpr std::string_view kName = "KVN.TOKEN.NAME";
constexpr std::string_view kValue = "KVN.ENUM.VALUE";
constexpr std::string_view kText = "KVN.ENUM.DESC";

/// What a list's record says in one of its fields, if it is of that type.
template<class T>
[[nodiscard]] std::optional<T> valueIn(const tivra::Record& record, std::string_view field) {
    constexpr auto kType = std::is_integral_v<T> ? tivra::Value::Type::Integer : tivra::Value::Type::Text;
    for (const auto& [name, value] : record)
        if (name.name() == field)
            return value.type() == kType ? std::optional<T>(value.template as<T>()) : std::nullopt;
    return std::nullopt;
}

} // namespace
} // namespace tivra_internal

namespace tivra {

using tivra_internal::EnumerationTexts;

Enumerations::Enumerations() : m_texts(std::make_shared<EnumerationTexts>()) {}

Enumerations::Enumerations(const Snapshot& fields, const Snapshot& values) {
    using namespace tivra_internal;
    std::unordered_map<std::int64_t, std::string> names;
    for (const Record& record : fields.records()) {
        const auto number = valueIn<std::int64_t>(record, kNumber);
        const auto name = valueIn<std::string_view>(record, kName);
        if (number && name)
            names.emplace(*number, *name);
    }
    const auto texts = std::make_shared<EnumerationTexts>();
    for (const Record& record : values.records()) {
        const auto number = valueIn<std::int64_t>(record, kNumber);
        const auto value = valueIn<std::int64_t>(record, kValue);
        const auto text = valueIn<std::string_view>(record, kText);
        const auto name = number ? names.find(*number) : names.end();
        if (name != names.end() && value && text)
            texts->byField[name->second].insert_or_assign(*value, std::string(*text));
    }
    m_texts = texts;
}

std::size_t Enumerations::size() const noexcept {
    return m_texts->byField.size();
}

bool Enumerations::has(const Field& field) const {
    return m_texts->find(field.name()) != nullptr;
}

std::string_view Enumerations::textOf(const Field& field, std::int64_t value) const {
    const EnumerationTexts::Texts* const texts = m_texts->find(field.name());
    if (texts == nullptr)
        return {};
    const auto found = texts->find(value);
    return found != texts->end() ? std::string_view(found->second) : std::string_view();
}

std::optional<std::int64_t> Enumerations::valueOf(const Field& field, std::string_view text) const {
    if (const EnumerationTexts::Texts* const texts = m_texts->find(field.name()))
        for (const auto& [value, name] : *texts)
            if (name == text)
                return value;
    return std::nullopt;
}

} // namespace tivra
