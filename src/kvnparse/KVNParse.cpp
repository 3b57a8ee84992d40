#include "kvnparse/KVNParse.h"

#include "kvnparse/KVNFields.h"
#include "kvnparse/NumberDecode.h"
#include "kvnparse/NumericText.h"
#include "kvnparse/ParserAbort.h"

#include <tp/te_error.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace KVNAPI {

namespace {

constexpr char kOptionsHelp[] = "\nAvailable options are:\n"
                                "  AllowVerboseToken=0|1 : Permit KVN names as token ids\n"
                                "  ParseIntoHeader=0|1   : Parse src/sym/etc into message header\n"
                                "  PartCodeInHeader=0|1  : Load PART.CODE into message header\n"
                                "  SetEOL=<ascii #>      : Set the End-Of-Line character (default 3)\n"
                                "  HasKVNHeader=0|1      : Skip first 6 bytes of msg (default true)"
                                "  DoNotParseSymbolIntoHeader=0|1   : Do not parse sym into message header\n";

/// The shortest frame that the quicker forms take.
constexpr bufref_len_t kShortestVectorFrame = 16;

/// Longest stretch in which the "=" behind a token name is looked for.
constexpr std::size_t kNameSearchMax = 256;

/// A token number as it stands on the wire, or -1 for one that no token can have.
std::int64_t tokenNumber(const char* digits, const atou64_ret& read) noexcept {
    constexpr std::int64_t MAX_NUMBER = 2147483647;
    // More than ten digits can wrap around into a number that looks valid.
    while (*digits == '0' && digits + 1 < read.p)
        ++digits;
    if (read.p - digits > 10 || read.i > static_cast<std::uint64_t>(MAX_NUMBER))
        return -1;
    return static_cast<std::int64_t>(read.i);
}

} // namespace

int KVNParse::setMetaMap(DataMap* map) {
    Token* unknownToken = nullptr;
    Token* unknownValue = nullptr;
    Token* deleteToken = nullptr;
    const DataMap::lookup rows[] = {{"UNKNOWNTOKEN", Token::TY_STRING, &unknownToken},
                                    {"UNKNOWNSVALUE", Token::TY_STRING, &unknownValue},
                                    {"TOKEN.DEL", Token::TY_INT, &deleteToken}};
    if (map->lookupMany(rows, static_cast<unsigned>(std::size(rows))) != 0)
        return -1;
    m_UnknownToken = unknownToken;
    m_UnknownValue = unknownValue;
    m_DeleteToken = deleteToken;
    m_map = map;
    m_generation = map->generation();
    // A token of the old map may be gone, and another may live at its address.
    m_funcs.clear();
    setupHeaders();
    return 0;
}

void KVNParse::setupHeaders() {
    struct HeaderRow {
        const char* name;
        kvnparser_t function;
        bool enabled;
        Token* KVNParse::*field;
    };
    const bool header = m_parseIntoHeader != 0;
    const HeaderRow rows[] = {
        {"ENUM.SRC.ID", parseExchange, header, &KVNParse::m_ExchangeToken},
        {"PERMISSION", parsePermission, header, &KVNParse::m_PermissionToken},
        {"SYMBOL.TICKER", parseSymbol, header && m_excludeSym == 0, &KVNParse::m_SymbolToken},
        {"REFRESH", parseRefresh, header, &KVNParse::m_RefreshToken},
        {"ENUM.DISPLAY.PRECISION", parseDenom, header, nullptr},
        {"PART.CODE", parseMarket, header && m_partCodeInHeader != 0, nullptr},
        {"ENUM.QUERY.STATUS", parseRetCode, header, &KVNParse::m_RetCodeToken},
        {"QUERY.TAG", parseTag, header, &KVNParse::m_TagToken},
        {"CUSIP", parseCusip, header, &KVNParse::m_CusipToken},
        {"ISIN", parseIsin, header, &KVNParse::m_IsinToken},
        {"SEDOL", parseSedol, header, &KVNParse::m_SedolToken},
        {"SYMBOL.BLOOMBERG.TICKER", parseSymBbgTicker, header, &KVNParse::m_SymBbgTickerToken},
        {"SYMBOL.QUINTAL.TICKER", parseSymQuinTicker, header, &KVNParse::m_SymQuinTickerToken},
        {"PRODUCT.ROOT", parseProdRoot, header, &KVNParse::m_ProdRootToken},
    };
    for (const HeaderRow& row : rows) {
        Token* const token = m_map->lookupTokenViaName(row.name);
        if (row.field != nullptr)
            this->*row.field = token;
        if (token != nullptr)
            m_funcs.set(*m_map, token, row.enabled ? row.function : nullptr);
    }
    forgetResolved();
}

void KVNParse::forgetResolved() {
    m_rowsById.clear();
    m_rows.clear();
    m_index.clear();
    m_firstRow = FieldRow();
    m_firstRow.next = &m_noRow;
    m_exchangeRows.fill(ExchangeRow());
}

void KVNParse::setReading(FieldRow& row) const noexcept {
    row.kind = row.token->storage == Token::TY_STRING   ? FieldRow::STRING
               : row.token->storage == Token::TY_DOUBLE ? FieldRow::DOUBLE
                                                        : FieldRow::INTEGER;
    const kvnparser_t function = tokenFunc(row.token);
    row.function = function;
    if (function == parseSymbol)
        row.kind = FieldRow::SYMBOL;
    else if (function == parseExchange)
        row.kind = FieldRow::EXCHANGE;
    else if (function == parsePermission)
        row.kind = FieldRow::PERMISSION;
    else if (function == parseRefresh)
        row.kind = FieldRow::REFRESH;
    else if (function == parseDenom)
        row.kind = FieldRow::DENOM;
    else if (function == parseMarket)
        row.kind = FieldRow::MARKET;
    else if (function == parseRetCode)
        row.present = FieldRow::RET_CODE;
    else if (function == parseTag)
        row.present = FieldRow::TAG;
    else if (function != nullptr)
        row.present = FieldRow::ALT_INDEX;
    if (row.present != 0) {
        row.valueKind = row.kind;
        row.kind = FieldRow::FLAGGED;
    }
}

FieldRow* KVNParse::makeRow(std::uint32_t id) {
    if (id >= kMaxRows)
        return nullptr;
    Token* const token = m_map->lookupTokenViaNum(static_cast<int>(id));
    if (token == nullptr)
        return nullptr;
    char start[kNumberTextMax] = {};
    char* const end = u64toa(start, id);
    *end = '=';
    FieldRow& row = m_rows.emplace_back();
    row.next = &m_noRow;
    row.token = token;
    row.startSize = static_cast<std::uint8_t>(end + 1 - start);
    std::memcpy(&row.start, start, sizeof row.start);
    row.startMask = ~std::uint64_t{0} >> (64 - 8 * row.startSize);
    setReading(row);
    if (id >= m_rowsById.size())
        m_rowsById.resize(std::bit_ceil(std::max<std::size_t>(id + 1, 256)));
    m_rowsById[id] = &row;
    m_index.add(&row);
    return &row;
}

const Exchange* KVNParse::findExchange(std::int32_t id) {
    ExchangeRow& row = m_exchangeRows[static_cast<std::uint32_t>(id) % kExchangeRows];
    row = {id, m_map->lookupExchange(id)};
    return row.exchange;
}

bool KVNParse::isBound() {
    if (m_map == nullptr) {
        tp::te_error("Parser has no token map");
        return false;
    }
    // The map was copied over: all tokens that this parser knows are gone.
    return m_generation == m_map->generation() || setMetaMap(m_map) == 0;
}

int KVNParse::parse(bufref frame, Message* message) {
    return parseWith(m_form, frame, message);
}

int KVNParse::parseWith(BodyParser form, bufref frame, Message* message) {
    m_msg = message;
    m_frame = frame;
    message->reset();
    if (!isBound())
        return -1;
    const auto headerSize = static_cast<bufref_len_t>(m_headerSize);
    if (frame.len <= headerSize)
        return abortAt(frame.end(), "Invalid token");
    // The quicker forms rely on a header to read backwards into and on an end byte that is part of no value.
    // They read sixteen bytes at a time.
    const bool plain = headerSize == kKvnHeaderSize && m_allowVerboseToken == 0 && m_terminator == ETX &&
                       frame.len >= kShortestVectorFrame && frame.end()[-1] == ETX;
    return (plain ? form : parseBodyScalar)(*this, frame.buf + headerSize);
}

const char* KVNParse::parseField(const char* position) {
    Token* token = nullptr;
    kvnparser_t function = nullptr;
    position = readToken(position, token, function);
    if (position == nullptr)
        return nullptr;
    return function != nullptr ? function(this, position) : pullDefaultField(token, position);
}

const char* KVNParse::readToken(const char* position, Token*& token, kvnparser_t& function) {
    const char* end = position;
    const atou64_ret digits = _atou64(position, m_frame.end());
    if (digits.p != position && digits.p != m_frame.end() && *digits.p == '=') {
        end = digits.p;
        findToken(tokenNumber(position, digits), token, function);
    } else {
        if (m_allowVerboseToken == 0)
            end = nullptr;
        else
            token = tryStringToken(&end);
        if (end == nullptr) {
            abortAt(position, "Invalid token");
            return nullptr;
        }
        function = token != nullptr ? tokenFunc(token) : nullptr;
    }
    if (token == nullptr) {
        m_msg->addPair()->setS(m_UnknownToken, position, end - position);
        token = m_UnknownValue;
        function = tokenFunc(token);
    }
    return end + 1;
}

void KVNParse::findToken(std::int64_t number, Token*& token, kvnparser_t& function) {
    if (number < 0)
        return;
    if (const FieldRow* const known = row(static_cast<std::uint32_t>(number)); known != nullptr) {
        token = known->token;
        function = known->function;
    } else if (number >= kMaxRows) {
        token = m_map->lookupTokenViaNum(static_cast<int>(number));
        function = token != nullptr ? tokenFunc(token) : nullptr;
    }
}

Token* KVNParse::tryStringToken(const char** position) const {
    const char* const name = *position;
    const auto held = static_cast<std::size_t>(m_frame.end() - name);
    const void* const found = std::memchr(name, '=', std::min(held, kNameSearchMax));
    *position = static_cast<const char*>(found);
    if (found == nullptr || found == name) {
        *position = nullptr;
        return nullptr;
    }
    return m_map->lookupTokenViaName(std::string_view(name, static_cast<std::size_t>(*position - name)));
}

const char* KVNParse::readSigned(const char* position, std::int64_t& value) const noexcept {
    const SignedNumber read = _atoi64(position, m_frame.end());
    value = read.i;
    return read.p;
}

const char* KVNParse::valueEnd(const char* position) const noexcept {
    // A long text is worth a search that looks at many bytes at a time.
    constexpr std::ptrdiff_t SHORT = 32;
    const char* end = m_frame.end();
    const char* const shortEnd = end - position > SHORT ? position + SHORT : end;
    for (; position < shortEnd; ++position)
        if (*position == '|' || *position == m_terminator)
            return position;
    for (const char separator : {'|', m_terminator})
        if (const void* const found =
                std::memchr(position, separator, static_cast<std::size_t>(end - position)))
            end = static_cast<const char*>(found);
    return end;
}

bufref KVNParse::keepText(const char* from, const char* end) {
    const auto length = static_cast<std::size_t>(end - from);
    if (m_textsInFrame)
        return {from, length};
    // The texts of a frame take no more than its bytes, so an area that grows does so once.
    char* const area = m_msg->verifyArea(length, static_cast<std::size_t>(m_frame.end() - from));
    std::memcpy(area, from, length);
    m_msg->confirmArea(length);
    return {area, length};
}

const char* KVNParse::pullDefaultField(Token* token, const char* position) {
    Message& message = *m_msg;
    if (token->storage == Token::TY_STRING) {
        const char* const end = valueEnd(position);
        const bufref text = keepText(position, end);
        message.addPair()->setB(token, text);
        return end;
    }
    if (isValueEnd(position)) {
        message.addPair()->setI(m_DeleteToken, token->kvnid);
        return position;
    }
    if (token->storage == Token::TY_DOUBLE) {
        const atod_ret read = _atod(position, m_frame.end());
        message.addPair()->setD(token, read.d);
        return read.p;
    }
    std::int64_t value = 0;
    position = readSigned(position, value);
    message.addPair()->setI(token, value);
    return position;
}

int KVNParse::endField(const char* position, const char*& next) const {
    if (position != m_frame.end()) {
        if (*position == m_terminator)
            return position + 1 == m_frame.end() ? 0 : abortAt(position, "Data after ETX");
        if (*position == '|') {
            next = position + 1;
            return 1;
        }
    }
    return abortAt(position, "Invalid value");
}

int KVNParse::abortAt(const char* position, const char* reason) const {
    parserAbortFunc(m_frame, position, "%s", reason);
    return -1;
}

int KVNParse::setOption(const char* name, const char* value) {
    const std::string_view option(name);
    if (option == "help") {
        tp::te_error("%s", kOptionsHelp);
        return -1;
    }
    const long number = std::strtol(value, nullptr, 10);
    const auto narrow = static_cast<std::int32_t>(number);
    if (option == "SetEOL")
        m_terminator = static_cast<char>(number);
    else if (option == "HasKVNHeader")
        m_headerSize = number != 0 ? static_cast<std::int32_t>(kKvnHeaderSize) : 0;
    else if (option == "AllowVerboseToken")
        m_allowVerboseToken = narrow;
    else if (option == "ParseIntoHeader")
        m_parseIntoHeader = narrow;
    else if (option == "PartCodeInHeader")
        m_partCodeInHeader = narrow;
    else if (option == "DoNotParseSymbolIntoHeader")
        m_excludeSym = narrow;
    else {
        tp::te_error("Invalid option name");
        return -1;
    }
    if (m_map != nullptr)
        setupHeaders();
    return 0;
}

} // namespace KVNAPI
