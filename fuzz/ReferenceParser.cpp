#include "ReferenceParser.h"

#include "FuzzDictionary.h"

#include "kvnparse/Message.h"

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <optional>

namespace fuzz {
namespace {

using KVNAPI::Token;

/// The parts of a message, in the form that both sides are compared in.
struct Description {
    std::string symbol;
    std::optional<std::int64_t> exchange;
    std::optional<std::int64_t> permission;
    char market = 0;
    bool refresh = false;
    int denom = 1;
    bool retCode = false;
    bool tag = false;
    bool altIndex = false;
    std::string pairs;

    void add(std::string_view name, std::int64_t value) {
        pairs.append(name).append(" i ").append(std::to_string(value)) += '\n';
    }
    void add(std::string_view name, double value) {
        pairs.append(name).append(" d ").append(std::to_string(std::bit_cast<std::uint64_t>(value))) += '\n';
    }
    void add(std::string_view name, std::string_view value) {
        pairs.append(name).append(" s ").append(std::to_string(value.size())) += ' ';
        pairs.append(value) += '\n';
    }

    [[nodiscard]] std::string text() const {
        const auto number = [](const std::optional<std::int64_t>& id) {
            return id ? std::to_string(*id) : std::string("none");
        };
        std::string out = "symbol " + std::to_string(symbol.size()) + ' ' + symbol + " exchange " +
                          number(exchange) + " permission " + number(permission) + " market " +
                          std::to_string(market) + " refresh " + std::to_string(refresh) + " denom " +
                          std::to_string(denom) + '\n';
        out +=
            std::string("flags ") + (retCode ? "R" : "-") + (tag ? "T" : "-") + (altIndex ? "A" : "-") + '\n';
        return out + pairs;
    }
};

const Field* fieldOf(std::string_view name) {
    for (const Field& field : FIELDS)
        if (name == field.name)
            return &field;
    return nullptr;
}

const Field* fieldOf(std::uint64_t id) {
    for (const Field& field : FIELDS)
        if (id == static_cast<std::uint64_t>(field.id))
            return &field;
    return nullptr;
}

int denomOf(std::int32_t code) {
    const std::int32_t n = code & ~0xE0;
    if (code & 0x40)
        return n >= 0 && n <= 9 ? 64 + n : 1;
    if (code & 0x20)
        return n >= 0 && n <= 8 ? 32 + n : 1;
    if (code & 0x80)
        return n >= 0 && n <= 5 ? 128 + n : 1;
    return code == 1 ? 1 : 0;
}

class ReferenceParser {
public:
    ReferenceParser(std::string_view frame, const ParserOptions& options)
        : m_frame(frame), m_options(options) {}

    [[nodiscard]] std::string parse() {
        m_at = std::min(m_options.headerSize, m_frame.size());
        for (;;) {
            const Field* const field = readId();
            if (m_refusal.empty())
                readValue(*field);
            if (!m_refusal.empty())
                return m_refusal;
            if (m_at < m_frame.size() && m_frame[m_at] == m_options.terminator) {
                if (m_at + 1 == m_frame.size())
                    return m_out.text();
                refuse("Data after ETX");
            } else if (m_at < m_frame.size() && m_frame[m_at] == '|') {
                ++m_at;
            } else {
                refuse("Invalid value");
            }
            if (!m_refusal.empty())
                return m_refusal;
        }
    }

private:
    void refuse(const char* reason) {
        m_refusal = "refused: Parser error around pos " + std::to_string(m_at) + ": " + reason;
    }

    [[nodiscard]] bool digitAt(std::size_t at) const {
        return at < m_frame.size() && m_frame[at] >= '0' && m_frame[at] <= '9';
    }
    [[nodiscard]] bool byteAt(std::size_t at, char c) const {
        return at < m_frame.size() && m_frame[at] == c;
    }
    [[nodiscard]] bool endAt(std::size_t at) const {
        return at >= m_frame.size() || m_frame[at] == '|' || m_frame[at] == m_options.terminator;
    }

    /// The digits that start at a position.
    [[nodiscard]] std::string_view digitsAt(std::size_t at) const {
        std::size_t end = at;
        while (digitAt(end))
            ++end;
        return m_frame.substr(at, end - at);
    }

    static std::uint64_t valueOf(std::string_view digits) {
        std::uint64_t value = 0;
        for (const char c : digits)
            value = value * 10 + static_cast<std::uint64_t>(c - '0');
        return value;
    }

    const Field* readId() {
        const std::string_view digits = digitsAt(m_at);
        std::string_view id = digits;
        const Field* field = nullptr;
        if (!digits.empty() && byteAt(m_at + digits.size(), '=')) {
            std::string_view significant = digits;
            while (significant.size() > 1 && significant.front() == '0')
                significant.remove_prefix(1);
            if (significant.size() <= 10 && valueOf(significant) <= 2147483647)
                field = fieldOf(valueOf(significant));
        } else {
            const std::size_t equals = m_options.names ? m_frame.find('=', m_at) : std::string_view::npos;
            if (equals == std::string_view::npos || equals == m_at || equals - m_at >= 256) {
                refuse("Invalid token");
                return nullptr;
            }
            id = m_frame.substr(m_at, equals - m_at);
            field = fieldOf(id);
        }
        if (field == nullptr) {
            m_out.add("UNKNOWNTOKEN", id);
            field = fieldOf("UNKNOWNSVALUE");
        }
        m_at += id.size() + 1;
        return field;
    }

    std::int64_t readSigned() {
        const bool negative = byteAt(m_at, '-');
        const std::size_t start = m_at + (negative || byteAt(m_at, '+') ? 1 : 0);
        const std::string_view digits = digitsAt(start);
        if (digits.empty())
            return 0;
        m_at = start + digits.size();
        const std::uint64_t value = valueOf(digits);
        return static_cast<std::int64_t>(negative ? 0 - value : value);
    }

    double readDouble() {
        const bool negative = byteAt(m_at, '-');
        const std::size_t start = m_at + (negative || byteAt(m_at, '+') ? 1 : 0);
        if (start != m_at && !digitAt(start) && !(byteAt(start, '.') && digitAt(start + 1)))
            return 0;
        const std::string_view whole = digitsAt(start);
        double value = static_cast<double>(static_cast<std::int64_t>(valueOf(whole)));
        std::size_t end = start + whole.size();
        if (byteAt(end, '.')) {
            const std::string_view fraction = digitsAt(end + 1);
            if (fraction.size() > 17)
                return 0;
            const std::string power = "1e-" + std::to_string(fraction.size());
            const double scaled =
                static_cast<double>(valueOf(fraction)) * std::strtod(power.c_str(), nullptr);
            value = value + scaled;
            end += 1 + fraction.size();
        }
        m_at = end;
        return negative ? -value : value;
    }

    void readDefault(const Field& field) {
        if (field.storage == Token::TY_STRING) {
            std::size_t end = m_at;
            while (!endAt(end))
                ++end;
            m_out.add(field.name, m_frame.substr(m_at, end - m_at));
            m_at = end;
        } else if (endAt(m_at)) {
            m_out.add("TOKEN.DEL", std::int64_t{field.id});
        } else if (field.storage == Token::TY_DOUBLE) {
            const double value = readDouble();
            m_out.add(field.name, value);
        } else {
            const std::int64_t value = readSigned();
            m_out.add(field.name, value);
        }
    }

    void readSource(const Field& field, std::optional<std::int64_t>& source) {
        if (source) {
            readDefault(field);
            return;
        }
        const auto id = static_cast<std::int32_t>(readSigned());
        if (isAcceptedSource(id))
            source = id;
    }

    void readValue(const Field& field) {
        const std::string_view name = field.name;
        if (!m_options.intoHeader)
            readDefault(field);
        else if (name == "ENUM.SRC.ID")
            readSource(field, m_out.exchange);
        else if (name == "PERMISSION")
            readSource(field, m_out.permission);
        else if (name == "SYMBOL.TICKER" && !m_options.excludeSymbol && m_out.symbol.empty())
            for (; !endAt(m_at); ++m_at)
                m_out.symbol += m_frame[m_at];
        else if (name == "REFRESH" && !endAt(m_at) && byteAt(m_at, '1') && endAt(m_at + 1)) {
            m_out.refresh = true;
            ++m_at;
        } else if (name == "ENUM.DISPLAY.PRECISION")
            m_out.denom = denomOf(static_cast<std::int32_t>(readSigned()));
        else if (name == "PART.CODE" && m_options.partCodeInHeader) {
            if (m_at + 1 >= m_frame.size())
                refuse("Invalid value");
            else
                m_out.market = m_frame[m_at++];
        } else {
            m_out.retCode |= name == "ENUM.QUERY.STATUS";
            m_out.tag |= name == "QUERY.TAG";
            m_out.altIndex |= field.id >= 40 && field.id <= 45;
            readDefault(field);
        }
    }

    std::string_view m_frame;
    const ParserOptions& m_options;
    std::size_t m_at = 0;
    Description m_out;
    std::string m_refusal;
};

} // namespace

std::string referenceParse(std::string_view frame, const ParserOptions& options) {
    return ReferenceParser(frame, options).parse();
}

std::string describe(const KVNAPI::Message& message) {
    Description out;
    out.symbol = message.symbol.view();
    if (message.exchange != nullptr)
        out.exchange = message.exchange->id;
    if (message.permission != nullptr)
        out.permission = message.permission->id;
    out.market = message.market;
    out.refresh = message.isRefresh != 0;
    out.denom = message.denomcode->kvncode;
    out.retCode = message.isRetCodePresent != 0;
    out.tag = message.isTagPresent != 0;
    out.altIndex = message.isAltIndexPresent != 0;
    KVNAPI::Message::iterator pairs(&message);
    while (const KVNAPI::TVPair* const pair = pairs.next()) {
        if (pair->token->storage == Token::TY_STRING)
            out.add(pair->token->name, pair->s.view());
        else if (pair->token->storage == Token::TY_DOUBLE)
            out.add(pair->token->name, pair->d);
        else
            out.add(pair->token->name, pair->i);
    }
    return out.text();
}

std::string withoutFlags(std::string description) {
    // A symbol or value may hold a line of that look, but the same is then cut on both sides.
    const std::size_t start = description.find("\nflags ");
    return description.erase(start, sizeof "\nflags RTA" - 1);
}

} // namespace fuzz
