#include "ParserTestKit.h"

#include "kvnparse/Denom.h"
#include "kvnparse/Exchange.h"

#include <cstdio>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

namespace kvnparse_test {

using KVNAPI::Token;

TestMap::TestMap() {
    struct Row {
        int number;
        const char* name;
        unsigned storage;
    };
    static constexpr Row ROWS[] = {
        {1, "PLAIN.INT", Token::TY_INT},
        {2, "PLAIN.TEXT", Token::TY_STRING},
        {3, "PERMISSION", Token::TY_INT},
        {4, "ENUM.SRC.ID", Token::TY_INT},
        {5, "SYMBOL.TICKER", Token::TY_STRING},
        {6, "REFRESH", Token::TY_INT},
        {7, "PLAIN.DOUBLE", Token::TY_DOUBLE},
        {8, "BID", Token::TY_DOUBLE},
        {9, "PART.CODE", Token::TY_STRING},
        {10, "ENUM.DISPLAY.PRECISION", Token::TY_INT},
        {11, "CUSIP", Token::TY_STRING},
        {12, "ISIN", Token::TY_STRING},
        {13, "SEDOL", Token::TY_STRING},
        {14, "SYMBOL.BLOOMBERG.TICKER", Token::TY_STRING},
        {15, "SYMBOL.QUINTAL.TICKER", Token::TY_STRING},
        {16, "PRODUCT.ROOT", Token::TY_STRING},
        {5001, "ENUM.QUERY.STATUS", Token::TY_INT},
        {5004, "TOKEN.DEL", Token::TY_INT},
        {5026, "QUERY.TAG", Token::TY_INT},
        {20000, "HIGH.INT", Token::TY_INT},
        {45028, "UNKNOWNTOKEN", Token::TY_STRING},
        {45029, "UNKNOWNSVALUE", Token::TY_STRING},
        {70001, "HIGHER.TEXT", Token::TY_STRING},
    };
    for (const Row& row : ROWS)
        add(row.number, row.name, row.storage);
}

std::string frameOf(std::string_view body) {
    std::string frame("\x04 ");
    for (const int shift : {24, 16, 8, 0})
        frame += static_cast<char>(body.size() >> shift & 0xff);
    return frame.append(body) + '\x03';
}

std::string describe(const KVNAPI::Message& message) {
    std::string text;
    const auto number = [&text](const char* title, std::int64_t value) {
        text.append(title).append(std::to_string(value)) += ' ';
    };
    if (message.symbol.len != 0)
        text.append("symbol=").append(message.symbol.view()) += ' ';
    if (message.exchange != nullptr)
        number("source=", message.exchange->id);
    if (message.permission != nullptr)
        number("permission=", message.permission->id);
    if (message.market != 0)
        text.append("market=").append(1, message.market) += ' ';
    if (message.isRefresh)
        text += "refresh ";
    if (message.denomcode != KVNAPI::Denom::getUnknown())
        number("precision=", message.denomcode->kvncode);
    if (message.isRetCodePresent)
        text += "[status] ";
    if (message.isTagPresent)
        text += "[tag] ";
    if (message.isAltIndexPresent)
        text += "[altindex] ";
    KVNAPI::Message::iterator pairs(&message);
    while (const KVNAPI::TVPair* const pair = pairs.next()) {
        text.append(std::to_string(pair->token->kvnid)) += ':';
        switch (pair->token->storage) {
        case Token::TY_INT:
            number("", pair->i);
            break;
        case Token::TY_DOUBLE: {
            char value[40];
            std::snprintf(value, sizeof value, "%.17g ", pair->d);
            text += value;
            break;
        }
        default:
            text.append("'").append(pair->s.view()).append("' ");
        }
    }
    if (!text.empty())
        text.pop_back();
    return text;
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
