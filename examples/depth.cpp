// An order book: what each exchange bids and asks for a symbol, kept up to date. Prints the whole book first,
// then the best prices after each of a number of changes. Ends with 1 when the hub refuses the symbol.
// usage: example_depth HOST:PORT USER PASSWORD SOURCE SYMBOL CHANGES
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <future>
#include <iostream>
#include <map>
#include <optional>
#include <string>

#include <tivra/feed.h>

namespace {

struct Line {
    std::optional<double> bid;
    std::optional<double> ask;
};

/// The lines by their exchanges. It is used in the callbacks of one subscription alone, which come one at a
/// time.
class Book {
public:
    explicit Book(const tivra::Feed& feed)
        : m_exchange(feed.field("QUOTE.EXCHANGE")), m_bid(feed.field("BID")), m_ask(feed.field("ASK")) {}

    /// @return whether the update is about a line; a trade isn't
    bool apply(const tivra::Update& update) {
        const auto exchange = update.get<std::string>(m_exchange);
        if (!exchange)
            return false;
        Line& line = m_lines[*exchange];
        if (const auto price = update.get<double>(m_bid))
            line.bid = price;
        if (const auto price = update.get<double>(m_ask))
            line.ask = price;
        return true;
    }
    void clear() { m_lines.clear(); }

    void print() const {
        for (const auto& [exchange, line] : m_lines)
            std::cout << exchange << ' ' << line.bid.value_or(0) << ' ' << line.ask.value_or(0) << '\n';
    }
    void printBest() const {
        Line best;
        for (const auto& [exchange, line] : m_lines) {
            best.bid = std::max(best.bid, line.bid);
            if (line.ask && (!best.ask || *line.ask < *best.ask))
                best.ask = line.ask;
        }
        std::cout << "best " << best.bid.value_or(0) << ' ' << best.ask.value_or(0) << '\n';
    }

private:
    const tivra::Field m_exchange;
    const tivra::Field m_bid;
    const tivra::Field m_ask;
    std::map<std::string, Line> m_lines;
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 7) {
        std::cerr << "usage: " << argv[0] << " HOST:PORT USER PASSWORD SOURCE SYMBOL CHANGES\n";
        return 2;
    }
    try {
        tivra::FeedOptions options;
        options.hosts = {argv[1]};
        options.user = argv[2];
        options.password = argv[3];
        tivra::Feed feed = tivra::Feed::open(std::move(options));

        Book book(feed);
        int left = std::atoi(argv[6]);
        std::promise<void> done;
        tivra::SubscriptionHandlers handlers;
        handlers.onUpdate = [&](const tivra::Update& update) {
            if (!book.apply(update) || update.kind() == tivra::Update::Kind::Image || left == 0)
                return;
            book.printBest();
            if (--left == 0)
                done.set_value();
        };
        handlers.onState = [&](const tivra::SubscriptionView&, const tivra::StateChange& change) {
            if (change.to == tivra::DataState::Live)
                book.print();
            if (change.to == tivra::DataState::Refused)
                done.set_exception(std::make_exception_ptr(*change.error));
        };
        handlers.onGap = [&](const tivra::SubscriptionView&, const tivra::Gap& gap) {
            if (gap.cause == tivra::Gap::Cause::Loss || gap.cause == tivra::Gap::Cause::Withdrawal)
                book.clear(); // a new image follows
        };
        const tivra::Subscription subscription =
            feed.subscribeDepth({std::atoi(argv[4]), argv[5]}, std::move(handlers));
        done.get_future().get();
        return 0;
    } catch (const tivra::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
