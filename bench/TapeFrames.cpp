#include "TapeFrames.h"

#include <map>
#include <random>
#include <stdexcept>
#include <string_view>

#include <zlib.h>

namespace tivra_bench {

using KVNAPI::Token;

namespace {

enum : int {
    PERMISSION = 3,
    SOURCE = 4,
    SYMBOL = 5,
    PART_CODE = 9,
    ACTIVITY_TIME = 1004,
    SEQUENCE = 1010,
    BID = 1020,
    BID_SIZE = 1021,
    ASK = 1022,
    ASK_SIZE = 1023,
    QUOTE_CONDITION = 1025,
    TRADE_PRICE = 1030,
    TRADE_SIZE = 1031,
    TRADE_CONDITION = 1032,
    TRADE_COUNT = 1033,
    VOLUME = 1034,
    HIGH = 1035,
    LOW = 1036,
    SUSPICIOUS = 1050,
    EXCHANGE_TIME = 1060,
    TAG = 5026,
};

constexpr double MIDNIGHT = 1381118400.0; // 7 October 2013, New York

/// Columns of the file.
enum Column {
    MS,
    TICKER,
    KIND,
    BID_COLUMN,
    BID_SIZE_COLUMN,
    ASK_COLUMN,
    ASK_SIZE_COLUMN,
    PRICE,
    SIZE,
    VENUE,
    CONDITION,
    SUSPECT,
    COLUMNS
};
using Row = std::vector<std::string_view>;

/// What is known of a symbol, from its events so far.
struct Book {
    std::string bid = "0.0000", bidSize = "0", ask = "0.0000", askSize = "0", high, low;
    long volume = 0, trades = 0, sequence = 0;
};

std::string timeOf(std::string_view milliseconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", MIDNIGHT + std::stod(std::string(milliseconds)) / 1000.0);
    return text;
}

TapeMessage startOf(const Row& row, Book& book) {
    const int source = 33 + (row[VENUE].empty() ? 0 : row[VENUE][0] - 'A');
    return {{TAG, "18"},
            {SOURCE, std::to_string(source)},
            {SYMBOL, std::string(row[TICKER])},
            {PERMISSION, std::to_string(source)},
            {PART_CODE, std::string(row[VENUE].substr(0, 1))},
            {ACTIVITY_TIME, timeOf(row[MS])},
            {SEQUENCE, std::to_string(++book.sequence)}};
}

TapeMessage quoteOf(const Row& row, Book& book) {
    const auto update = [&row](std::string& known, Column column) {
        if (!row[column].empty())
            known = row[column];
    };
    update(book.bid, BID_COLUMN);
    update(book.bidSize, BID_SIZE_COLUMN);
    update(book.ask, ASK_COLUMN);
    update(book.askSize, ASK_SIZE_COLUMN);
    TapeMessage message = startOf(row, book);
    message.push_back({BID, book.bid});
    message.push_back({BID_SIZE, book.bidSize});
    message.push_back({ASK, book.ask});
    message.push_back({ASK_SIZE, book.askSize});
    message.push_back({QUOTE_CONDITION, std::string(row[CONDITION])});
    message.push_back({EXCHANGE_TIME, timeOf(row[MS])});
    return message;
}

TapeMessage tradeOf(const Row& row, Book& book) {
    const std::string price(row[PRICE]);
    const std::string size(row[SIZE]);
    book.volume += std::stol(size);
    ++book.trades;
    if (book.high.empty() || std::stod(price) > std::stod(book.high))
        book.high = price;
    if (book.low.empty() || std::stod(price) < std::stod(book.low))
        book.low = price;
    TapeMessage message = startOf(row, book);
    message.push_back({TRADE_PRICE, price});
    message.push_back({TRADE_SIZE, size});
    message.push_back({TRADE_CONDITION, std::string(row[CONDITION])});
    message.push_back({TRADE_COUNT, std::to_string(book.trades)});
    message.push_back({VOLUME, std::to_string(book.volume)});
    message.push_back({HIGH, book.high});
    message.push_back({LOW, book.low});
    message.push_back({SUSPICIOUS, std::string(row[SUSPECT])});
    message.push_back({EXCHANGE_TIME, timeOf(row[MS])});
    return message;
}

Row split(std::string_view line) {
    Row row;
    for (std::size_t from = 0; from <= line.size();) {
        const std::size_t to = std::min(line.find(',', from), line.size());
        row.push_back(line.substr(from, to - from));
        from = to + 1;
    }
    return row;
}

/// The unpacked lines of a file, one at a time.
class PackedLines {
public:
    explicit PackedLines(const std::string& path) : m_file(::gzopen(path.c_str(), "rb")) {}
    ~PackedLines() {
        if (m_file != nullptr)
            ::gzclose(m_file);
    }
    PackedLines(const PackedLines&) = delete;
    PackedLines& operator=(const PackedLines&) = delete;

    [[nodiscard]] bool next(std::string_view& line) {
        if (m_file == nullptr || ::gzgets(m_file, m_line, sizeof m_line) == nullptr)
            return false;
        line = m_line;
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
            line.remove_suffix(1);
        return true;
    }

private:
    gzFile m_file;
    char m_line[512];
};

} // namespace

const TapeToken TAPE_TOKENS[] = {
    {PERMISSION, "PERMISSION", Token::TY_INT},
    {SOURCE, "ENUM.SRC.ID", Token::TY_INT},
    {SYMBOL, "SYMBOL.TICKER", Token::TY_STRING},
    {PART_CODE, "PART.CODE", Token::TY_STRING},
    {ACTIVITY_TIME, "ACTIVITY.DATETIME", Token::TY_DOUBLE},
    {SEQUENCE, "SEQUENCE", Token::TY_INT},
    {BID, "BID", Token::TY_DOUBLE},
    {BID_SIZE, "BID.SIZE", Token::TY_INT},
    {ASK, "ASK", Token::TY_DOUBLE},
    {ASK_SIZE, "ASK.SIZE", Token::TY_INT},
    {QUOTE_CONDITION, "QUOTE.CONDITION", Token::TY_STRING},
    {TRADE_PRICE, "TRADE.PRICE", Token::TY_DOUBLE},
    {TRADE_SIZE, "TRADE.SIZE", Token::TY_INT},
    {TRADE_CONDITION, "TRADE.CONDITION", Token::TY_STRING},
    {TRADE_COUNT, "TRADE.COUNT", Token::TY_INT},
    {VOLUME, "VOLUME", Token::TY_INT},
    {HIGH, "HIGH", Token::TY_DOUBLE},
    {LOW, "LOW", Token::TY_DOUBLE},
    {SUSPICIOUS, "SUSPICIOUS", Token::TY_INT},
    {EXCHANGE_TIME, "EXCHANGE.DATETIME", Token::TY_DOUBLE},
    {5004, "TOKEN.DEL", Token::TY_INT},
    {TAG, "QUERY.TAG", Token::TY_INT},
    {45028, "UNKNOWNTOKEN", Token::TY_STRING},
    {45029, "UNKNOWNSVALUE", Token::TY_STRING},
};
const std::size_t TAPE_TOKEN_COUNT = std::size(TAPE_TOKENS);

TapeMap::TapeMap() {
    const auto add = [this](int number, const char* name, unsigned storage) {
        Token token;
        token.kvnid = number;
        token.name = name;
        token.storage = storage & 3U;
        if (addToken(&token) == nullptr)
            throw std::runtime_error(name);
    };
    for (const TapeToken& token : TAPE_TOKENS)
        add(token.number, token.name, token.storage);
    for (int number = 2000; number < 2300; ++number)
        add(number, std::string("FIELD.").append(std::to_string(number)).c_str(), Token::TY_INT);
}

void forEachTapeMessage(const std::string& path, const std::function<bool(TapeMessage&& message)>& take) {
    std::map<std::string, Book, std::less<>> books;
    PackedLines lines(path);
    std::string_view line;
    while (lines.next(line)) {
        const Row row = split(line);
        if (row.size() != COLUMNS || row[KIND].size() != 1 || row[KIND] == "kind")
            continue;
        Book& book = books[std::string(row[TICKER])];
        if (!take(row[KIND] == "Q" ? quoteOf(row, book) : tradeOf(row, book)))
            return;
    }
}

std::vector<TapeMessage> readTape(const std::string& path) {
    std::vector<TapeMessage> messages;
    forEachTapeMessage(path, [&messages](TapeMessage&& message) {
        messages.push_back(std::move(message));
        return true;
    });
    return messages;
}

std::vector<TapeMessage> withSymbols(std::vector<TapeMessage> messages, unsigned symbols) {
    std::mt19937 random(7);
    for (TapeMessage& message : messages) {
        unsigned number = static_cast<unsigned>(random() % symbols);
        std::string name;
        for (int i = 0; i < 4; ++i, number /= 26)
            name += static_cast<char>('A' + number % 26);
        for (TapeField& field : message)
            if (field.token == SYMBOL)
                field.value = name;
    }
    return messages;
}

std::string asFrames(const std::vector<TapeMessage>& messages) {
    std::string frames;
    for (const TapeMessage& message : messages) {
        std::string body;
        for (const TapeField& field : message)
            body.append(std::to_string(field.token)).append("=").append(field.value) += '|';
        body.pop_back();
        frames.append("\x04 ");
        for (const int shift : {24, 16, 8, 0})
            frames += static_cast<char>(body.size() >> shift & 0xff);
        frames.append(body) += '\x03';
    }
    return frames;
}

std::string asJsonLines(const std::vector<TapeMessage>& messages) {
    std::map<int, unsigned> storage;
    for (const TapeToken& token : TAPE_TOKENS)
        storage[token.number] = token.storage;
    std::string lines;
    for (const TapeMessage& message : messages) {
        char before = '{';
        for (const TapeField& field : message) {
            const char* const quote = storage.at(field.token) == Token::TY_STRING ? "\"" : "";
            lines += before;
            lines.append("\"").append(std::to_string(field.token)).append("\":");
            lines.append(quote).append(field.value).append(quote);
            before = ',';
        }
        lines += "}\n";
    }
    return lines;
}

std::size_t fieldCount(const std::vector<TapeMessage>& messages) {
    std::size_t count = 0;
    for (const TapeMessage& message : messages)
        count += message.size();
    return count;
}

} // namespace tivra_bench
