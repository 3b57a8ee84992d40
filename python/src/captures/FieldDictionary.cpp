#include "captures/FieldDictionary.h"

#include "captures/FileFault.h"

#include <kvnparse/MapLoader.h>
#include <tivra_sim/Dictionary.h>
#include <tp/te_error.h>

#include <algorithm>
#include <charconv>
#include <memory>

namespace tivra_python {

using tivra_internal::MetaToken;

namespace {

constexpr const char* kStorageWords[] = {"INTEGER", "FLOAT", "STRING"};

} // namespace

FieldDictionary::FieldDictionary(const std::vector<DictionaryField>& fields) {
    for (const DictionaryField& field : fields)
        static_cast<void>(add(field));
}

const MetaToken* FieldDictionary::find(const std::string& nameOrNumber) {
    if (const KVNAPI::Token* const named = m_map.lookupTokenViaName(nameOrNumber.c_str()); named != nullptr)
        return MetaToken::cast(named);
    int number = 0;
    const char* const end = nameOrNumber.data() + nameOrNumber.size();
    const auto [stop, error] = std::from_chars(nameOrNumber.data(), end, number);
    return error == std::errc{} && stop == end && number > 0 ? findOrAdd(number) : nullptr;
}

const MetaToken* FieldDictionary::known(int number) const {
    const KVNAPI::Token* const token = m_map.lookupTokenViaNum(number);
    return token != nullptr ? MetaToken::cast(token) : nullptr;
}

const MetaToken* FieldDictionary::findOrAdd(int number) {
    if (known(number) == nullptr)
        static_cast<void>(add({number, std::to_string(number), "STRING"}));
    return known(number);
}

bool FieldDictionary::add(const DictionaryField& field) {
    auto token = std::make_unique<MetaToken>();
    token->setKVNToken(field.number);
    token->setTokenName(field.name.data(), static_cast<long>(field.name.size()));
    if (!token->setKVNType(field.type.data(), static_cast<long>(field.type.size())))
        static_cast<void>(token->setKVNType("STRING", 6));
    return m_map.addMetaToken(token);
}

ColumnType columnTypeOf(const MetaToken& field) noexcept {
    if (field.storage == KVNAPI::Token::TY_STRING || field.getTokenName() == kDeletedFields)
        return ColumnType::Text;
    if (field.storage == KVNAPI::Token::TY_INT)
        return ColumnType::Int64;
    return field.getKVNType() == tivra_internal::KVN_FLOAT ? ColumnType::Double : ColumnType::Time;
}

std::vector<DictionaryField> builtinFields() {
    std::vector<DictionaryField> fields;
    for (const tivra_sim::DictionaryRow& row : tivra_sim::builtinDictionary())
        fields.push_back({row.number, row.name, row.type});
    return fields;
}

std::vector<DictionaryField> fieldsOfMap(std::string_view text, const std::string& name) {
    KVNAPI::DataMap map;
    const KVNAPI::MapLoad load = KVNAPI::loadMapText(&map, text);
    if (load.result != 0) {
        const std::string_view reason = tp::te_geterror();
        throw FileFault(name + ":" + std::to_string(load.line) + ": " +
                        std::string(reason.substr(0, reason.find('\n'))));
    }
    std::vector<DictionaryField> fields;
    KVNAPI::DataMap::iterator walk(&map);
    while (const KVNAPI::Token* const token = walk.next())
        fields.push_back({token->kvnid, token->name, kStorageWords[token->storage]});
    std::sort(fields.begin(), fields.end(),
              [](const DictionaryField& a, const DictionaryField& b) { return a.number < b.number; });
    return fields;
}

} // namespace tivra_python
