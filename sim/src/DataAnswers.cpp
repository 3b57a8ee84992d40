#include "Responder.h"

#include <algorithm>
#include <charconv>
#include <tuple>

namespace tivra_sim {

namespace {

/// Tokens of a request that say how, and not what; any other names an alternate identifier.
bool isParameter(int token) {
    switch (token) {
    case token::PERMISSION:
    case token::SOURCE:
    case token::SYMBOL:
    case token::CONFLATION:
    case token::CONFLATION_INTERVAL:
    case token::COMMAND:
    case token::TAG:
    case token::DEPTH_TYPE:
    case token::QUERY_REF_TAG:
    case token::FILTER_ID:
        return true;
    default:
        return false;
    }
}

bool carries(const SymbolEntry& entry, const std::vector<Pair>& alternates) {
    return std::all_of(alternates.begin(), alternates.end(), [&](const Pair& pair) {
        const auto field = entry.fields.find(pair.token);
        return field != entry.fields.end() && field->second == pair.value;
    });
}

std::vector<Pair> alternatesOf(const Request& request) {
    std::vector<Pair> alternates;
    for (const Pair& pair : splitPairs(request.text)) {
        if (!isParameter(pair.token))
            alternates.push_back(pair);
    }
    return alternates;
}

double priceOf(std::string_view text) {
    double value = 0.0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

/// One line of a symbol's depth: what one exchange bids and asks.
struct DepthRow {
    std::string exchange;
    std::string bid;
    std::string bidSize;
    std::string ask;
    std::string askSize;
};

std::vector<DepthRow> depthRows(SymbolEntry& entry) {
    std::vector<DepthRow> rows;
    for (std::size_t letter = 0; letter < entry.book.size(); ++letter) {
        const ExchangeQuote& quote = entry.book[letter];
        if (quote.bid == nullptr && quote.ask == nullptr)
            continue;
        DepthRow row;
        row.exchange = std::string(1, static_cast<char>('A' + static_cast<int>(letter)));
        if (quote.bid != nullptr) {
            row.bid = findValue(quote.bid->body(), token::BID);
            row.bidSize = findValue(quote.bid->body(), token::BID_SIZE);
        }
        if (quote.ask != nullptr) {
            row.ask = findValue(quote.ask->body(), token::ASK);
            row.askSize = findValue(quote.ask->body(), token::ASK_SIZE);
        }
        rows.push_back(std::move(row));
    }
    if (rows.empty() && (entry.fields.count(token::BID) > 0 || entry.fields.count(token::ASK) > 0)) {
        const auto field = [&](int token) {
            const auto found = entry.fields.find(token);
            return found == entry.fields.end() ? std::string() : found->second;
        };
        rows.push_back({field(token::QUOTE_EXCHANGE), field(token::BID), field(token::BID_SIZE),
                        field(token::ASK), field(token::ASK_SIZE)});
    }
    std::stable_sort(rows.begin(), rows.end(), [](const DepthRow& left, const DepthRow& right) {
        return priceOf(left.bid) > priceOf(right.bid);
    });
    return rows;
}

std::string depthBody(const SymbolEntry& entry, const DepthRow& row, std::int64_t tag, int position) {
    Record record;
    record.add(token::TAG, static_cast<long long>(tag))
        .add(token::PERMISSION, entry.source)
        .add(token::SOURCE, entry.source)
        .add(token::SYMBOL, entry.symbol)
        .add(token::DEPTH_POSITION, position);
    if (!row.exchange.empty())
        record.add(token::PART_CODE, row.exchange).add(token::QUOTE_EXCHANGE, row.exchange);
    const std::pair<int, const std::string*> values[] = {{token::BID, &row.bid},
                                                         {token::BID_SIZE, &row.bidSize},
                                                         {token::ASK, &row.ask},
                                                         {token::ASK_SIZE, &row.askSize}};
    for (const auto& [token, value] : values) {
        if (!value->empty())
            record.add(token, *value);
    }
    return record.body();
}

} // namespace

std::vector<SymbolEntry*>
Responder::allowedEntries(Connection& connection, int source,
                          const std::function<bool(const SymbolEntry&)>& predicate) {
    return m_state.model.select([&](const SymbolEntry& entry) {
        return (source == -1 || entry.source == source) && predicate(entry) &&
               m_state.sourceStatus(connection, entry.source) == status::SUCCESS && m_state.holds(entry);
    });
}

Responder::Target Responder::resolve(Connection& connection, const Request& request, bool wildcard) {
    Target target;
    const std::vector<Pair> alternates = alternatesOf(request);
    const std::string symbol = request.value(token::SYMBOL);
    if (request.has(token::SOURCE)) {
        target.source = static_cast<int>(request.number(token::SOURCE));
        if (target.source < 1) {
            target.status = status::BAD_PARAMETER;
            return target;
        }
        target.status = m_state.sourceStatus(connection, target.source);
        if (target.status != status::SUCCESS)
            return target;
    } else if (symbol.empty() && alternates.empty()) {
        target.status = status::BAD_PARAMETER;
        return target;
    }
    const bool wholeSource = symbol.empty() && alternates.empty();
    target.isWildcard = wildcard || wholeSource;
    target.pattern = wholeSource || (wildcard && symbol.empty()) ? "*" : symbol;
    if (!target.isWildcard && alternates.empty() && target.source != -1) {
        SymbolEntry* entry = m_state.model.find(target.source, symbol);
        if (entry != nullptr && m_state.holds(*entry))
            target.entries.push_back(entry);
    } else {
        target.entries = allowedEntries(connection, target.source, [&](const SymbolEntry& entry) {
            const bool named = target.isWildcard ? matchesWildcard(target.pattern, entry.symbol)
                                                 : symbol.empty() || symbol == entry.symbol;
            return named && carries(entry, alternates);
        });
    }
    // A group's client asks every member for news, and those that don't have it must not spoil the answer.
    const bool isElsewhere = m_state.group != nullptr && target.source >= FIRST_NEWS_SOURCE;
    if (target.entries.empty() && !wholeSource)
        target.status = isElsewhere ? status::NOT_CARRIED : status::UNKNOWN_SYMBOL;
    return target;
}

void Responder::enter(Connection& connection, const Target& target, std::int64_t tag) {
    connection.subscribe({tag, target.source, target.pattern, target.isWildcard, target.entries});
}

Responder::Bodies Responder::subscribe(Connection& connection, const Request& request) {
    const Target target = resolve(connection, request, false);
    if (target.status == status::SUCCESS)
        enter(connection, target, request.tag);
    Bodies bodies{statusBody(request.tag, target.status)};
    if (target.status == status::SUCCESS && m_state.model.config().refreshOnSubscribe) {
        for (SymbolEntry* entry : target.entries)
            bodies.push_back(HubModel::image(*entry, -1));
    }
    return bodies;
}

Responder::Bodies Responder::subscribeWildCard(Connection& connection, const Request& request) {
    const Target target = resolve(connection, request, true);
    if (target.status == status::SUCCESS)
        enter(connection, target, request.tag);
    return answeredWith(request, target.status);
}

Responder::Bodies Responder::unsubscribe(Connection& connection, const Request& request) {
    if (request.has(token::QUERY_REF_TAG)) {
        const std::int64_t tag = request.number(token::QUERY_REF_TAG);
        const std::size_t ended =
            connection.unsubscribe([tag](const Subscription& candidate) { return candidate.tag == tag; });
        return {statusBody(request.tag, ended > 0 ? status::SUCCESS : status::UNKNOWN_SUBSCRIPTION)};
    }
    const Target target = resolve(connection, request, request.command == "UnsubscribeWildCard");
    const std::size_t ended = connection.unsubscribe([&](const Subscription& candidate) {
        if (!target.pattern.empty())
            return candidate.source == target.source && candidate.pattern == target.pattern;
        return !target.entries.empty() && candidate.symbols == target.entries;
    });
    if (ended > 0)
        return answeredWith(request, status::SUCCESS);
    return {statusBody(request.tag,
                       target.status == status::SUCCESS ? status::UNKNOWN_SUBSCRIPTION : target.status)};
}

Responder::Bodies Responder::images(const Target& target, std::int64_t tag, bool subscribeToo,
                                    Connection& connection) {
    Bodies bodies;
    if (target.status == status::SUCCESS) {
        for (SymbolEntry* entry : target.entries)
            bodies.push_back(HubModel::image(*entry, tag));
        if (subscribeToo)
            enter(connection, target, tag);
    }
    bodies.push_back(statusBody(tag, target.status));
    return bodies;
}

Responder::Bodies Responder::depth(const Target& target, std::int64_t tag, bool subscribeToo,
                                   Connection& connection) {
    Bodies bodies;
    if (target.status == status::SUCCESS) {
        for (SymbolEntry* entry : target.entries) {
            int position = 0;
            for (const DepthRow& row : depthRows(*entry))
                bodies.push_back(depthBody(*entry, row, tag, ++position));
        }
        if (subscribeToo)
            enter(connection, target, tag);
    }
    bodies.push_back(statusBody(tag, target.status));
    return bodies;
}

Responder::Bodies Responder::querySnap(Connection& connection, const Request& request) {
    return images(resolve(connection, request, false), request.tag, false, connection);
}

Responder::Bodies Responder::querySnapAndSubscribe(Connection& connection, const Request& request) {
    return images(resolve(connection, request, false), request.tag, true, connection);
}

Responder::Bodies Responder::queryWildCard(Connection& connection, const Request& request) {
    return images(resolve(connection, request, true), request.tag, false, connection);
}

Responder::Bodies Responder::querySnapAndSubscribeWildCard(Connection& connection, const Request& request) {
    return images(resolve(connection, request, true), request.tag, true, connection);
}

Responder::Bodies Responder::queryDepth(Connection& connection, const Request& request) {
    return depth(resolve(connection, request, false), request.tag, false, connection);
}

Responder::Bodies Responder::queryDepthAndSubscribe(Connection& connection, const Request& request) {
    return depth(resolve(connection, request, false), request.tag, true, connection);
}

Responder::Bodies Responder::queryXRef(Connection& connection, const Request& request) {
    const Target target = resolve(connection, request, false);
    if (target.status != status::SUCCESS)
        return answeredWith(request, target.status);
    // Beside what was named, whatever shares its CUSIP number or ISIN on another source.
    const std::vector<SymbolEntry*> related = allowedEntries(connection, -1, [&](const SymbolEntry& entry) {
        return std::any_of(target.entries.begin(), target.entries.end(), [&](const SymbolEntry* named) {
            const auto shares = [&](int token) {
                const auto left = named->fields.find(token);
                const auto right = entry.fields.find(token);
                return left != named->fields.end() && right != entry.fields.end() &&
                       left->second == right->second;
            };
            return named == &entry || shares(token::CUSIP) || shares(token::ISIN);
        });
    });
    Bodies bodies;
    for (const SymbolEntry* entry : related) {
        Record record = answerTo(request);
        record.add(token::PERMISSION, entry->source)
            .add(token::SOURCE, entry->source)
            .add(token::SYMBOL, entry->symbol);
        for (const int token : {token::CUSIP, token::ISIN, token::SEDOL, token::BLOOMBERG_TICKER,
                                token::QUINTAL_TICKER, token::PRODUCT_ROOT}) {
            const auto field = entry->fields.find(token);
            if (field != entry->fields.end())
                record.add(token, field->second);
        }
        bodies.push_back(record.body());
    }
    bodies.push_back(statusBody(request.tag, status::SUCCESS));
    return bodies;
}

} // namespace tivra_sim
