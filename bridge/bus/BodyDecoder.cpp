#include "bus/BodyDecoder.h"

#include "bus/BusError.h"
#include "bus/JsonText.h"
#include "bus/TypeNames.h"
#include "bus/ValidText.h"

#include "kvnparse/DataMap.h"
#include "kvnparse/Exchange.h"
#include "kvnparse/FrameFormat.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Message.h"

#include <feed/Value.h>
#include <tp/te_error.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <charconv>
#include <cstdint>
#include <vector>

namespace tivra_bus {

namespace {

using tivra::Value;

constexpr int kMostFieldNumber = 65'535;
/// What is kept from batch to batch.
constexpr std::size_t kMostKeptNames = 100'000;

struct FieldMeaning {
    int number = 0;
    std::string name;
    Value::Type type = Value::Type::Integer;
};

/// A field of a batch.
class FieldToken final : public KVNAPI::Token {
public:
    explicit FieldToken(const FieldMeaning& meaning) : type(meaning.type) {
        kvnid = meaning.number;
        name = meaning.name.c_str();
        storage = type == Value::Type::Integer ? TY_INT : type == Value::Type::Text ? TY_STRING : TY_DOUBLE;
    }
    /// Every token of a Dictionary is one.
    static FieldToken& cast(KVNAPI::Token& token) { return static_cast<FieldToken&>(token); }
    static const FieldToken& cast(const KVNAPI::Token& token) {
        return static_cast<const FieldToken&>(token);
    }

    Value::Type type;
    std::uint64_t batch = 0; ///< the last one that has it
};

[[noreturn]] void failFields(const std::string& what) {
    throw BatchError("a batch, line 2: " + what);
}

std::vector<FieldMeaning> meaningsOf(std::string_view line) {
    const nlohmann::json object = nlohmann::json::parse(line, nullptr, false);
    const auto fields = object.is_object() ? object.find("fields") : object.end();
    if (fields == object.end() || !fields->is_object())
        failFields(R"(a JSON object with an object "fields" was wanted)");
    std::vector<FieldMeaning> meanings;
    for (const auto& [key, value] : fields->items()) {
        FieldMeaning meaning;
        const char* const end = key.data() + key.size();
        const auto [after, error] = std::from_chars(key.data(), end, meaning.number);
        const bool isPair =
            value.is_array() && value.size() == 2 && value[0].is_string() && value[1].is_string();
        const auto type = isPair ? typeNamed(value[1].get<std::string>()) : std::nullopt;
        if (error != std::errc() || after != end || meaning.number < 0 || meaning.number > kMostFieldNumber ||
            !type)
            failFields(fmt::format(R"("{}": a number up to {} with a name and a type was wanted)", key,
                                   kMostFieldNumber));
        meaning.name = value[0].get<std::string>();
        meaning.type = *type;
        meanings.push_back(std::move(meaning));
    }
    return meanings;
}

BusValue valueOf(Value::Type type, const KVNAPI::TVPair& pair) {
    switch (type) {
    case Value::Type::Integer:
        return pair.i;
    case Value::Type::Double:
        return pair.d;
    case Value::Type::Time: {
        std::string text;
        appendTime(text, Value::ofTime(pair.d).as<tivra::TimePoint>());
        return text;
    }
    case Value::Type::Text:
        break;
    }
    return validText({pair.s.buf, pair.s.len});
}

} // namespace

/// What numbers mean, and the parser that knows it.
class BodyDecoder::Dictionary final : public KVNAPI::DataMap {
public:
    /// @return false where that contradicts what is there
    [[nodiscard]] bool take(const std::vector<FieldMeaning>& meanings) {
        ++m_batch;
        bool isNew = !m_isBound;
        for (const FieldMeaning& meaning : meanings) {
            KVNAPI::Token* token = lookupTokenViaNum(meaning.number);
            if (token == nullptr) {
                const FieldToken made(meaning);
                token = addToken(&made);
                isNew = true;
            }
            if (token == nullptr || meaning.name != token->name ||
                FieldToken::cast(*token).type != meaning.type)
                return false;
            FieldToken::cast(*token).batch = m_batch;
        }
        return !isNew || bind();
    }
    [[nodiscard]] bool isFull() const {
        return tokenCount() > kMostKeptNames || exchangeCount() > kMostKeptNames;
    }

    [[nodiscard]] BusFields decode(std::string_view body) {
        m_frame.resize(KVNAPI::kKvnHeaderSize);
        KVNAPI::writeFrameHeader(m_frame.data(), static_cast<std::uint32_t>(body.size()));
        m_frame += body;
        m_frame += KVNAPI::ETX;
        if (m_parse.parse({m_frame.data(), m_frame.size()}, &m_message) != 0) {
            const std::string_view why = tp::te_geterror();
            throw BodyError(std::string(why.substr(0, why.find('\n'))));
        }
        BusFields fields;
        fields.reserve(static_cast<std::size_t>(m_message.pairCount()));
        for (int i = 0; i < m_message.pairCount(); ++i) {
            const KVNAPI::TVPair& pair = *m_message.pair(i);
            const FieldToken& token = FieldToken::cast(*pair.token);
            // The parser's own tell what it has no number for.
            if (token.batch != m_batch && pair.token != m_deleted)
                throw BodyError(R"(a field isn't among the "fields" of the batch)");
            fields.emplace_back(pair.token->name, valueOf(token.type, pair));
        }
        return fields;
    }

protected:
    KVNAPI::Token* newToken(const KVNAPI::Token* token) override {
        return std::make_unique<FieldToken>(FieldToken::cast(*token)).release();
    }

private:
    /// Adds what every parser needs, under numbers that no hub has.
    [[nodiscard]] bool bind() {
        int number = 0;
        for (const auto& [name, type] :
             {std::pair("TOKEN.DEL", Value::Type::Integer), std::pair("UNKNOWNTOKEN", Value::Type::Text),
              std::pair("UNKNOWNSVALUE", Value::Type::Text)}) {
            const FieldMeaning meaning{--number, name, type};
            const FieldToken made(meaning);
            if (lookupTokenViaName(name) == nullptr && addToken(&made) == nullptr)
                return false;
        }
        m_deleted = lookupTokenViaName("TOKEN.DEL");
        m_parse.setTextsInFrame(true);
        m_isBound = m_parse.setMetaMap(this) == 0;
        return m_isBound;
    }

    KVNAPI::KVNParse m_parse;
    KVNAPI::Message m_message;
    std::string m_frame;
    const KVNAPI::Token* m_deleted = nullptr;
    std::uint64_t m_batch = 0;
    bool m_isBound = false;
};

BodyDecoder::BodyDecoder() = default;
BodyDecoder::~BodyDecoder() = default;
BodyDecoder::BodyDecoder(BodyDecoder&&) noexcept = default;
BodyDecoder& BodyDecoder::operator=(BodyDecoder&&) noexcept = default;

void BodyDecoder::begin(std::string_view line) {
    if (m_dictionary != nullptr && line == m_line && !m_dictionary->isFull())
        return;
    const std::vector<FieldMeaning> meanings = meaningsOf(line);
    m_line.clear();
    if (m_dictionary == nullptr || m_dictionary->isFull() || !m_dictionary->take(meanings)) {
        // Another hub's dictionary, or another release of it.
        m_dictionary = std::make_unique<Dictionary>();
        if (!m_dictionary->take(meanings)) {
            m_dictionary.reset();
            failFields(R"("fields": a name is too long, or a field of two meanings)");
        }
    }
    m_line = line;
}

BusFields BodyDecoder::decode(std::string_view body) {
    if (m_dictionary == nullptr)
        throw BodyError("there are no fields for it");
    return m_dictionary->decode(body);
}

} // namespace tivra_bus
