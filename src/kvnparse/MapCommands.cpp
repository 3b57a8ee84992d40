#include "kvnparse/MapCommands.h"

#include "kvnparse/DataMap.h"
#include "kvnparse/Message.h"

#include <tp/eprintf.h>
#include <tp/te_error.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>

namespace KVNAPI {

namespace {

constexpr int kQueryTag = 5026;

struct CommandToken {
    const char* name;
    Token::Storage storage;
};

/// The position is the number. Those behind the short name are read so that older files still load.
constexpr CommandToken kCommandTokens[] = {
    {"UNKNOWNTOKEN", Token::TY_STRING}, {"UNKNOWNSVALUE", Token::TY_STRING},
    {"TOKEN.DEL", Token::TY_INT},       {"cmd", Token::TY_STRING},
    {"name", Token::TY_STRING},         {"token", Token::TY_INT},
    {"storage", Token::TY_STRING},      {"hidden", Token::TY_INT},
    {"passthrough", Token::TY_INT},     {"normalize", Token::TY_INT},
    {"shortname", Token::TY_STRING},    {"source", Token::TY_INT},
    {"price", Token::TY_INT},           {"assumeI", Token::TY_INT},
    {"volComp", Token::TY_INT},         {"DDFvolComp", Token::TY_INT},
    {"marketToken", Token::TY_INT},     {"parser", Token::TY_STRING},
    {"direction", Token::TY_STRING},    {"id", Token::TY_INT},
    {"alttoken", Token::TY_INT},
};

/// A name of a command, with the zero that look-ups want behind it.
struct NameText {
    char text[DataMap::MAX_NAME + 1] = {};
};

int fail(const char* text) {
    tp::te_seterror(text);
    return -1;
}

/// The first pair of that name, or null.
const TVPair* msgFind(DataMap* map, const Message* msg, const char* name) {
    const Token* const token = map->lookupTokenViaName(name);
    return token != nullptr ? msg->findPair(token) : nullptr;
}

/// One command and the dictionary that it was parsed with.
struct Command {
    DataMap* dictionary;
    const Message* message;

    [[nodiscard]] const TVPair* find(const char* name) const { return msgFind(dictionary, message, name); }

    /// Copies a name; -1 with the text for one that is missing or too long.
    [[nodiscard]] int name(const char* pairName, NameText& out, const char* missing,
                           const char* tooLong) const {
        const TVPair* const pair = find(pairName);
        if (pair == nullptr)
            return fail(missing);
        if (pair->s.len > DataMap::MAX_NAME)
            return fail(tooLong);
        pair->s.view().copy(out.text, DataMap::MAX_NAME);
        return 0;
    }

    /// The value of a flag, which need not be there.
    [[nodiscard]] bool flag(const char* pairName) const {
        const TVPair* const pair = find(pairName);
        return pair != nullptr && pair->i != 0;
    }
};

std::optional<Token::Storage> storageOf(std::string_view text) {
    if (text == "int")
        return Token::TY_INT;
    if (text == "double")
        return Token::TY_DOUBLE;
    if (text == "string")
        return Token::TY_STRING;
    return std::nullopt;
}

int addTokenCommand(const Command& command, DataMap* map) {
    NameText name;
    if (command.name("name", name, "No name definition in token add command",
                     "Name definition too long in token add command") != 0)
        return -1;
    const TVPair* const id = command.find("token");
    if (id == nullptr)
        return fail("No id definition in token add command");
    if (id->i < std::numeric_limits<std::int32_t>::min() || id->i > std::numeric_limits<std::int32_t>::max())
        return fail("Id definition too large in token add command");
    const TVPair* const storageName = command.find("storage");
    if (storageName == nullptr)
        return fail("No storage definition in token add command");
    const std::optional<Token::Storage> storage = storageOf(storageName->s.view());
    if (!storage)
        return fail("Unknown storage definition in token add command");

    Token token;
    token.name = name.text;
    token.kvnid = static_cast<std::int32_t>(id->i);
    token.storage = *storage & 3U;
    token.hidden = command.flag("hidden") ? 1 : 0;
    token.passthrough = command.flag("passthrough") ? 1 : 0;
    token.priceNormalize = command.flag("normalize") ? 1 : 0;
    const Token* const added = map->addToken(&token);
    if (token.kvnid == kQueryTag)
        eprintf(EPF_DBUG, "tryAddToken(EXIT): tok=%p for 5026", static_cast<const void*>(added));
    return added != nullptr ? 0 : -1;
}

int addShortNameCommand(const Command& command, DataMap* map) {
    NameText name;
    if (command.name("name", name, "No name definition in short name add command",
                     "Name definition too long in short name add command") != 0)
        return -1;
    Token* const token = map->lookupTokenViaName(name.text);
    if (token == nullptr)
        return fail("Token not found in short name add command");
    NameText shortName;
    if (command.name("shortname", shortName, "No short name definition in short name add command",
                     "Short name too long in short name add command") != 0)
        return -1;
    return map->setShortName(token, shortName.text);
}

} // namespace

int buildLoadMap(DataMap* commands) {
    int number = 0;
    for (const CommandToken& row : kCommandTokens) {
        Token token;
        token.kvnid = number++;
        token.name = row.name;
        token.storage = row.storage & 3U;
        token.hidden = 1;
        const Token* const added = commands->addToken(&token);
        if (added == nullptr)
            return -1;
    }
    return 0;
}

int runMapCommand(DataMap* commands, const Message* command, DataMap* map) {
    const Command known{commands, command};
    const TVPair* const name = known.find("cmd");
    if (name == nullptr)
        return fail("No load command found");
    if (name->s.view() == "AddToken")
        return addTokenCommand(known, map);
    if (name->s.view() == "AddShortName")
        return addShortNameCommand(known, map);
    return 0;
}

} // namespace KVNAPI
