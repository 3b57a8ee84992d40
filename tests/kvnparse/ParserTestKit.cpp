#include "ParserTestKit.h"

#include "kvnparse/Denom.h"
#include "kvnparse/Exchange.h"

#include <tp/te_error.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

namespace kvnparse_test {

using KVNAPI::Token;

Token* TextMap::add(int number, const char* name, unsigned storage) {
    Token token;
    token.kvnid = number;
    token.name = name;
    token.storage = storage & 3U;
    Token* const added = addToken(&token);
    if (added == nullptr)
        throw std::logic_error(name);
    return added;
}

void TextMap::addAll(unsigned storage, const char* numbersAndNames) {
    std::istringstream rows(numbersAndNames);
    int number = 0;
    for (std::string name; rows >> number >> name;)
        add(number, name.c_str(), storage);
}

TestMap::TestMap() {
    addAll(Token::TY_INT, "1 PLAIN.INT  3 PERMISSION  4 ENUM.SRC.ID  6 REFRESH  10 ENUM.DISPLAY.PRECISION "
                          "5001 ENUM.QUERY.STATUS  5004 TOKEN.DEL  5026 QUERY.TAG  20000 HIGH.INT");
    addAll(Token::TY_DOUBLE, "7 PLAIN.DOUBLE  8 BID");
    addAll(Token::TY_STRING, "2 PLAIN.TEXT  5 SYMBOL.TICKER  9 PART.CODE  11 CUSIP  12 ISIN  13 SEDOL "
                             "14 SYMBOL.BLOOMBERG.TICKER  15 SYMBOL.QUINTAL.TICKER  16 PRODUCT.ROOT "
                             "45028 UNKNOWNTOKEN  45029 UNKNOWNSVALUE  70001 HIGHER.TEXT");
}

std::string frameOf(std::string_view body) {
    std::string frame("\x04 ");
    for (const int shift : {24, 16, 8, 0})
        frame += static_cast<char>(body.size() >> shift & 0xff);
    return frame.append(body) + '\x03';
}

std::string describe(const KVNAPI::Message& message) {
    std::vector<std::string> parts;
    const auto add = [&parts](bool present, const std::string& part) {
        if (present)
            parts.push_back(part);
    };
    const auto addId = [&add](const char* title, const KVNAPI::Exchange* exchange) {
        add(exchange != nullptr, title + std::to_string(exchange != nullptr ? exchange->id : 0));
    };
    add(message.symbol.len != 0, "symbol=" + std::string(message.symbol.view()));
    addId("source=", message.exchange);
    addId("permission=", message.permission);
    add(message.market != 0, std::string("market=") + message.market);
    add(message.isRefresh, "refresh");
    add(message.denomcode != KVNAPI::Denom::getUnknown(),
        "precision=" + std::to_string(message.denomcode->kvncode));
    add(message.isRetCodePresent, "[status]");
    add(message.isTagPresent, "[tag]");
    add(message.isAltIndexPresent, "[altindex]");
    KVNAPI::Message::iterator pairs(&message);
    while (const KVNAPI::TVPair* const pair = pairs.next()) {
        std::string text = std::to_string(pair->token->kvnid) + ':';
        if (pair->token->storage == Token::TY_INT) {
            text += std::to_string(pair->i);
        } else if (pair->token->storage == Token::TY_DOUBLE) {
            char value[40];
            std::snprintf(value, sizeof value, "%.17g", pair->d);
            text += value;
        } else {
            text.append("'").append(pair->s.view()) += '\'';
        }
        parts.push_back(text);
    }
    std::string line;
    for (const std::string& part : parts)
        line.append(line.empty() ? "" : " ").append(part);
    return line;
}

std::string encoded(KVNAPI::Encoder& encoder, const KVNAPI::Message& message, std::size_t room) {
    const auto bytes = std::make_unique<char[]>(room);
    KVNAPI::bufref out(bytes.get(), room);
    switch (encoder.encode(&out, &message)) {
    case 0:
        return std::string(out.view());
    case 1:
        return out.len == 0 ? "nothing" : "a length without bytes";
    default:
        return out.len == room ? tp::te_geterror() : "a length after a failure";
    }
}

std::vector<KVNAPI::BodyParserForm> formsHere() {
    std::vector<KVNAPI::BodyParserForm> forms;
    for (const KVNAPI::BodyParserForm* form = KVNAPI::kBodyParserForms; form->name != nullptr; ++form)
        if (form->runsHere()) {
            forms.push_back(*form);
            // Plain ones decode at once.
            if (form->parseLazily != form->parse)
                forms.push_back({"lazy", form->parseLazily, form->parseLazily, form->runsHere});
        }
    return forms;
}

std::string contentOf(KVNAPI::DataMap& map) {
    std::map<int, std::string> tokens;
    KVNAPI::DataMap::iterator walk(&map);
    while (const Token* const token = walk.next()) {
        std::string& line = tokens[token->kvnid];
        line = std::string(token->sid) + ' ' + token->name + ' ' + "ids"[token->storage];
        line += token->hidden ? " hidden" : "";
        line += token->passthrough ? " through" : "";
        line += token->priceNormalize ? " normal" : "";
        if (const std::string_view shortName = map.getShortName(token); shortName != token->name)
            line.append(" short ").append(shortName);
    }
    std::string lines;
    for (const auto& [number, line] : tokens)
        lines += line + '\n';
    return lines;
}

GuardedBytes::GuardedBytes(std::size_t capacity)
    : m_page(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)))
    , m_room((capacity + m_page - 1) / m_page * m_page)
    , m_block(static_cast<char*>(
          ::mmap(nullptr, m_room + 2 * m_page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    if (m_block == MAP_FAILED || ::mprotect(m_block, m_page, PROT_NONE) != 0 ||
        ::mprotect(m_block + m_page + m_room, m_page, PROT_NONE) != 0)
        throw std::runtime_error("no guarded memory");
}

GuardedBytes::~GuardedBytes() {
    ::munmap(m_block, m_room + 2 * m_page);
}

KVNAPI::bufref GuardedBytes::place(std::string_view bytes, Side side) {
    char* const start = m_block + m_page + (side == END_AT_GUARD ? m_room - bytes.size() : 0);
    std::memcpy(start, bytes.data(), bytes.size());
    return {start, bytes.size()};
}

} // namespace kvnparse_test
