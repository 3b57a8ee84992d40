#include "captures/BodyDecoder.h"

#include "captures/FileFault.h"

#include <kvnparse/Denom.h>
#include <kvnparse/Exchange.h>
#include <kvnparse/FrameFormat.h>
#include <tp/te_error.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace tivra_python {

using tivra_internal::MetaToken;

namespace {

constexpr const char* kHeadFields[] = {"ENUM.SRC.ID", "SYMBOL.TICKER", "QUERY.TAG", "ENUM.QUERY.STATUS"};

void setValue(RowBuilder& rows, int column, const KVNAPI::TVPair& pair) {
    const auto index = static_cast<std::size_t>(column);
    switch (pair.token->storage) {
    case KVNAPI::Token::TY_INT:
        rows.set(index, pair.i);
        break;
    case KVNAPI::Token::TY_DOUBLE:
        rows.set(index, pair.d);
        break;
    default:
        rows.set(index, pair.s.view());
    }
}

} // namespace

BodyDecoder::BodyDecoder(FieldDictionary& dictionary, const std::vector<const MetaToken*>& fields)
    : m_dictionary(dictionary)
    , m_tag(dictionary.find("QUERY.TAG"))
    , m_status(dictionary.find("ENUM.QUERY.STATUS"))
    , m_columns(kSmall, kNone)
    , m_parser(KVNAPI::Parser::alloc("kvn", &dictionary.map(), 0)) {
    if (m_parser == nullptr)
        throw FileFault("the dictionary can't be used: " + reason());
    m_parser->setTextsInFrame(true);
    m_parser->setLazyValues(true);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const int column = static_cast<int>(i);
        const std::string_view name = fields[i]->name;
        if (const auto number = static_cast<std::size_t>(fields[i]->kvnid); number < kSmall)
            m_columns[number] = column;
        else
            m_otherColumns.emplace(fields[i]->kvnid, column);
        if (name == "ENUM.SRC.ID")
            m_source = column;
        else if (name == "SYMBOL.TICKER")
            m_symbol = column;
        else if (name == "PERMISSION")
            m_permission = column;
        else if (name == kDeletedFields)
            m_deleted = column;
        else if (name == "REFRESH")
            m_refresh = column;
        else if (name == "PART.CODE")
            m_partCode = column;
        else if (name == "ENUM.DISPLAY.PRECISION")
            m_precision = column;
    }
}

bool BodyDecoder::isOfHead(const MetaToken& field) {
    return std::any_of(std::begin(kHeadFields), std::end(kHeadFields),
                       [&](const char* name) { return std::strcmp(name, field.name) == 0; });
}

std::string BodyDecoder::reason() {
    const std::string_view text = tp::te_geterror();
    return std::string(text.substr(0, text.find('\n')));
}

BodyDecoder::Outcome BodyDecoder::decode(const SourceMessage& message, const RowFilter& filter,
                                         bool isAfterGap, RowBuilder& rows) {
    if (!filter.takes(message.received))
        return Outcome::Unwanted;
    if (parse(message.body) == nullptr)
        return Outcome::Unreadable;
    if (!filter.takes(m_message.symbol.view()))
        return Outcome::Unwanted;
    addHead(message, isAfterGap, rows);
    addFields(rows);
    addLifted(rows);
    rows.end();
    return Outcome::Row;
}

const KVNAPI::Message* BodyDecoder::parse(std::string_view body) {
    m_frame.resize(KVNAPI::kKvnFrameExtra + body.size());
    KVNAPI::writeFrameHeader(m_frame.data(), static_cast<std::uint32_t>(body.size()));
    body.copy(m_frame.data() + KVNAPI::kKvnHeaderSize, body.size());
    m_frame.back() = KVNAPI::ETX;
    const int result = m_parser->parseFrame(KVNAPI::bufref(m_frame.data(), m_frame.size()), &m_message);
    if (result > 0)
        tp::te_seterror("its bytes don't make a frame");
    return result == 0 ? &m_message : nullptr;
}

void BodyDecoder::addHead(const SourceMessage& message, bool isAfterGap, RowBuilder& rows) const {
    RowHead head;
    head.received = message.received;
    head.isAfterGap = isAfterGap;
    head.source = m_message.exchange != nullptr ? m_message.exchange->id : 0;
    head.symbol = m_message.symbol.view();
    if (m_message.isRefresh)
        head.kind = RowKind::Refresh;
    if (m_message.isTagPresent) {
        head.kind = head.source != 0 ? RowKind::Image : head.kind;
        if (const int at = m_message.findPosition(m_tag); at >= 0) {
            head.tag = m_message.readPair(at).i;
            head.hasTag = true;
        }
    }
    if (m_message.isRetCodePresent) {
        head.kind = RowKind::Status;
        if (const int at = m_message.findPosition(m_status); at >= 0) {
            head.status = static_cast<std::int32_t>(m_message.readPair(at).i);
            head.hasStatus = true;
        }
    }
    rows.begin(head);
}

void BodyDecoder::addFields(RowBuilder& rows) {
    m_deletedNames.clear();
    for (int i = 0; i < m_message.pairCount(); ++i) {
        const int column = columnOf(*m_message.tokenOf(i));
        if (column == kNone)
            continue;
        if (column == m_deleted)
            addDeleted(m_message.readPair(i).i);
        else
            setValue(rows, column, m_message.readPair(i));
    }
    if (!m_deletedNames.empty())
        rows.set(static_cast<std::size_t>(m_deleted), std::string_view(m_deletedNames));
}

void BodyDecoder::addDeleted(std::int64_t number) {
    const tivra_internal::MetaToken* const field = number > 0 && number <= std::numeric_limits<int>::max()
                                                       ? m_dictionary.known(static_cast<int>(number))
                                                       : nullptr;
    m_deletedNames.append(m_deletedNames.empty() ? "" : ",")
        .append(field != nullptr ? field->getTokenName() : std::to_string(number));
}

void BodyDecoder::addLifted(RowBuilder& rows) const {
    const auto set = [&rows](int column, auto value) { rows.set(static_cast<std::size_t>(column), value); };
    if (m_source != kNone && m_message.exchange != nullptr)
        set(m_source, std::int64_t{m_message.exchange->id});
    if (m_symbol != kNone && m_message.symbol.len != 0)
        set(m_symbol, m_message.symbol.view());
    if (m_permission != kNone && m_message.permission != nullptr)
        set(m_permission, std::int64_t{m_message.permission->id});
    if (m_refresh != kNone && m_message.isRefresh)
        set(m_refresh, std::int64_t{1});
    if (m_partCode != kNone && m_message.market != 0)
        set(m_partCode, std::string_view(&m_message.market, 1));
    if (m_precision != kNone && m_message.denomcode != KVNAPI::Denom::getUnknown())
        set(m_precision, std::int64_t{m_message.denomcode->kvncode});
}

int BodyDecoder::columnOf(const KVNAPI::Token& token) const {
    if (const auto number = static_cast<std::size_t>(token.kvnid); number < kSmall)
        return m_columns[number];
    const auto found = m_otherColumns.find(token.kvnid);
    return found != m_otherColumns.end() ? found->second : kNone;
}

} // namespace tivra_python
