#pragma once

namespace tivra {

/// The fields that a request normally carries, given to Request::add. The values are token numbers; any other
/// token number can be given to Request::add as an int.
enum RequestParameters : int {
    CUSIP = 3123,                    ///< CUSIP number as alternate identifier
    SEDOL = 3126,                    ///< SEDOL number as alternate identifier
    ISIN = 3125,                     ///< ISIN as alternate identifier
    ENUM_SRC_ID = 4,                 ///< source (exchange) number
    ENUM_SRC_UNDERLYING_ID = 3130,   ///< source of the underlying
    SYMBOL_TICKER = 5,               ///< symbol
    SYMBOL_UNDERLYING_TICKER = 3083, ///< symbol of the underlying
    CONFLATION = 2035,               ///< kind of conflation
    KVN_TOKEN_NAME = 5010,           ///< a token by its name
    KVN_TOKEN_NUM = 5035,            ///< a token by its number; the alternate identifier of ADDALTERNATEINDEX
    SYMBOL_BLOOMBERG_TICKER = 3950,  ///< BLOOMBERG ticker as alternate identifier
    SYMBOL_QUINTAL_TICKER = 3958,    ///< QUINTAL ticker as alternate identifier
    PRODUCT_ROOT = 3974,             ///< product root
    DEPTH_TYPE = 5039,               ///< kind of order book
    USER_NAME = 5028,                ///< user name
    CONFLATION_INTERVAL = 2029,      ///< conflation interval, milliseconds
    KVN_FILTER_ID = 5205,            ///< filter identifier
    QUERY_REF_TAG = 5052             ///< tag of the earlier request that this one refers to
};

} // namespace tivra
