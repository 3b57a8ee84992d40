#include "tivra_sim/HubConfig.h"

namespace tivra_sim {

namespace {

/// `isin` is the number without its country; the CUSIP number is its first nine characters.
Symbol equity(const std::string& ticker, const char* name, const std::string& isin, const char* sedol,
              const char* close) {
    return {100,
            ticker,
            {{6, name},
             {7, "1"},
             {9, "USD"},
             {14, "NYSE"},
             {135, close},
             {token::CUSIP, isin.substr(0, 9)},
             {token::ISIN, "US" + isin},
             {token::SEDOL, sedol},
             {token::BLOOMBERG_TICKER, ticker + " US"},
             {token::QUINTAL_TICKER, ticker + ".N"}}};
}

Symbol option(const char* ticker, const char* underlying, const char* strike, const char* side) {
    return {101,
            ticker,
            {{7, "2"},
             {9, "USD"},
             {170, strike},
             {171, side},
             {216, "1387584000"},
             {224, "1387584000"},
             {token::BID, "4.1"},
             {token::BID_SIZE, "25"},
             {token::ASK, "4.2"},
             {token::ASK_SIZE, "31"},
             {token::UNDERLYING_SYMBOL, underlying},
             {token::UNDERLYING_SOURCE, "100"},
             {token::PRODUCT_ROOT, underlying}}};
}

} // namespace

HubConfig HubConfig::realistic() {
    HubConfig config;
    config.dictionary = builtinDictionary();
    config.enumerations = builtinEnumerations();
    config.users = {{"demo", "demo", {100, 101, SYSTEM_SOURCE, 4100}, 0}};
    config.boxPermissions = {100, 101, 102, SYSTEM_SOURCE, 4100};
    config.symbols = {
        equity("AIG", "American International Group", "0268747849", "2027342", "49.05"),
        equity("BAC", "Bank of America", "0605051046", "2295677", "14.05"),
        equity("IBM", "International Business Machines", "4592001014", "2005973", "184.10"),
        equity("SPY", "S&P 500 depositary receipts", "78462F1030", "2840215", "168.89"),
        option("IBM131221C185", "IBM", "185", "C"),
        option("IBM131221P185", "IBM", "185", "P"),
        option("AIG131221C49", "AIG", "49", "C"),
        {102,
         "ESZ3",
         {{7, "3"}, {token::BID, "1669.25"}, {token::ASK, "1669.50"}, {token::PRODUCT_ROOT, "ES"}}},
        {4100, "HEADLINES", {{301, "Markets open"}, {302, "20131007-1"}, {305, "1381152600"}}},
    };
    return config;
}

HubConfig HubConfig::quiet() {
    HubConfig config = realistic();
    config.heartbeat.enabled = false;
    config.hubStatus.enabled = false;
    return config;
}

} // namespace tivra_sim
