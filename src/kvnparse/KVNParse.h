#pragma once

#include "kvnparse/BodyParser.h"
#include "kvnparse/DataMap.h"
#include "kvnparse/FieldIndex.h"
#include "kvnparse/FieldRow.h"
#include "kvnparse/FrameFormat.h"
#include "kvnparse/LayoutTrend.h"
#include "kvnparse/Message.h"
#include "kvnparse/TokenFunctions.h"
#include "kvnparse/bufref.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace KVNAPI {

/// Knows the body of a frame: turns its id=value fields into a Message, by the dictionary that it is bound
/// to. Used by one thread, which may insert exchanges into the map while parsing.
class KVNParse {
public:
    /// String values are copied into the message, unless setTextsInFrame says otherwise.
    static constexpr int COPY_STRINGS = 1;

    KVNParse() = default;
    KVNParse(const KVNParse&) = delete;
    KVNParse& operator=(const KVNParse&) = delete;

    /// Binds the parser to a map. Returns -1 and keeps the old one when it lacks a token of those that every
    /// parser needs.
    [[nodiscard]] int setMetaMap(DataMap* map);

    /// Whether texts stay in the frame, for messages that are gone before its bytes are; at first they are
    /// copied.
    void setTextsInFrame(bool inFrame) noexcept { m_textsInFrame = inFrame; }
    [[nodiscard]] bool hasTextsInFrame() const noexcept { return m_textsInFrame; }

    /// Whether numbers stay in the frame as texts until they are asked for, for messages that are gone before
    /// its bytes are; at first they are decoded at once. What is refused is the same.
    void setLazyValues(bool lazy) noexcept { m_form = lazy ? m_best.parseLazily : m_best.parse; }

    /// Sets one option by its name; -1 with a text in te_geterror for "help" and unknown names.
    [[nodiscard]] int setOption(const char* name, const char* value);

    /// Empties the message and fills it from a whole frame. Returns 0, or -1 with a text in te_geterror; the
    /// message then holds what was parsed so far and must not be used.
    [[nodiscard]] int parse(bufref frame, Message* message);

    /// The same with a form of the body parser of the caller's choice.
    [[nodiscard]] int parseWith(BodyParser form, bufref frame, Message* message);

    // For the forms of the body parser and the functions of the fields.

    /// One field at `position`: its id, and its value by the token's function or the default step. Returns
    /// the position behind the value, or null after an abort.
    [[nodiscard]] const char* parseField(const char* position);

    /// Adds the pair of an ordinary value; see parseField.
    [[nodiscard]] const char* pullDefaultField(Token* token, const char* position);

    /// After the value that ends at `position`: sets `next` to the start of the field that follows. Returns 0
    /// at the end of the frame, 1 when a field follows and -1 after an abort.
    [[nodiscard]] int endField(const char* position, const char*& next) const;

    /// Reports why the frame is refused. Returns -1.
    int abortAt(const char* position, const char* reason) const;

    [[nodiscard]] bool isValueEnd(const char* position) const noexcept {
        return position >= m_frame.end() || *position == '|' || *position == m_terminator;
    }
    [[nodiscard]] const char* valueEnd(const char* position) const noexcept;
    /// A text of the frame as the message is to hold it: where it stands, or as a copy.
    [[nodiscard]] bufref keepText(const char* from, const char* end);
    [[nodiscard]] const char* readSigned(const char* position, std::int64_t& value) const noexcept;

    /// The row of a token number, or null when the map has no such token or its number is too long for a row.
    [[nodiscard]] FieldRow* row(std::uint32_t id) {
        return id < m_rowsById.size() && m_rowsById[id] != nullptr ? m_rowsById[id] : makeRow(id);
    }
    /// The row of the field that starts with these bytes, as far as one has been made; otherwise one that
    /// matches no field.
    [[nodiscard]] FieldRow* knownRow(std::uint64_t bytes) const noexcept { return m_index.find(bytes); }
    /// How the layouts of the messages so far follow each other.
    [[nodiscard]] LayoutTrend& layouts() noexcept { return m_layouts; }
    /// The row before the first field of a message.
    [[nodiscard]] FieldRow* firstRow() noexcept { return &m_firstRow; }

    /// The exchange of that number, through a small cache of this parser's own.
    [[nodiscard]] const Exchange* exchange(std::int64_t number) {
        const auto id = static_cast<std::int32_t>(number);
        const ExchangeRow& row = m_exchangeRows[static_cast<std::uint32_t>(id) % kExchangeRows];
        return row.id == id && row.exchange != nullptr ? row.exchange : findExchange(id);
    }

    DataMap* m_map = nullptr;
    Message* m_msg = nullptr;
    Token* m_UnknownToken = nullptr;
    Token* m_UnknownValue = nullptr;
    Token* m_DeleteToken = nullptr;
    Token* m_RefreshToken = nullptr;
    Token* m_ExchangeToken = nullptr;
    Token* m_PermissionToken = nullptr;
    Token* m_SymbolToken = nullptr;
    Token* m_RetCodeToken = nullptr;
    Token* m_TagToken = nullptr;
    Token* m_CusipToken = nullptr;
    Token* m_IsinToken = nullptr;
    Token* m_SedolToken = nullptr;
    Token* m_SymBbgTickerToken = nullptr;
    Token* m_SymQuinTickerToken = nullptr;
    Token* m_ProdRootToken = nullptr;
    std::int32_t m_parseIntoHeader = 1;
    std::int32_t m_partCodeInHeader = 1;
    std::int32_t m_allowVerboseToken = 0;
    std::int32_t m_excludeSym = 0;
    std::int32_t m_headerSize = static_cast<std::int32_t>(kKvnHeaderSize);
    char m_terminator = ETX;
    bufref m_frame; ///< the frame being parsed: no value reaches past its end

private:
    struct ExchangeRow {
        std::int32_t id = 0;
        const Exchange* exchange = nullptr;
    };
    static constexpr std::size_t kExchangeRows = 256;
    static constexpr std::uint32_t kMaxRows = 65536;

    void setupHeaders();
    [[nodiscard]] kvnparser_t tokenFunc(Token* token) const noexcept { return m_funcs.find(*m_map, token); }
    void forgetResolved();
    [[nodiscard]] bool isBound();
    [[nodiscard]] const Exchange* findExchange(std::int32_t id);
    [[nodiscard]] FieldRow* makeRow(std::uint32_t id);
    void setReading(FieldRow& row) const noexcept;
    [[nodiscard]] const char* readToken(const char* position, Token*& token, kvnparser_t& function);
    void findToken(std::int64_t number, Token*& token, kvnparser_t& function);
    [[nodiscard]] Token* tryStringToken(const char** position) const;

    TokenFunctions<kvnparser_t> m_funcs;
    std::uint64_t m_generation = 0;
    std::vector<FieldRow*> m_rowsById; ///< by token number
    std::deque<FieldRow> m_rows;       ///< in the order of their first use
    FieldRow m_firstRow;
    FieldRow m_noRow; ///< matches no field: no bytes under an empty mask are 1
    FieldIndex m_index{&m_noRow};
    LayoutTrend m_layouts;
    std::array<ExchangeRow, kExchangeRows> m_exchangeRows{};
    const BodyParserForm& m_best = bestBodyParser();
    BodyParser m_form = m_best.parse;
    bool m_textsInFrame = false;
};

} // namespace KVNAPI
