#pragma once

namespace tivra_sim {

/// Token numbers that the simulator itself reads or writes. The built-in dictionary names all of them and
/// more.
namespace token {
inline constexpr int PERMISSION = 3;
inline constexpr int SOURCE = 4;
inline constexpr int SYMBOL = 5;
inline constexpr int SYMBOL_NAME = 6;
inline constexpr int REFRESH = 24;
inline constexpr int SEQUENCE = 30;
inline constexpr int BID = 101;
inline constexpr int BID_SIZE = 102;
inline constexpr int ASK = 103;
inline constexpr int ASK_SIZE = 104;
inline constexpr int QUOTE_EXCHANGE = 105;
inline constexpr int QUOTE_CONDITION = 106;
inline constexpr int TRADE_PRICE = 111;
inline constexpr int TRADE_SIZE = 112;
inline constexpr int TRADE_EXCHANGE = 113;
inline constexpr int TRADE_CONDITION = 114;
inline constexpr int SUSPICIOUS = 115;
inline constexpr int DEPTH_POSITION = 121;
inline constexpr int PART_CODE = 130;
inline constexpr int QUOTE_DATETIME = 202;
inline constexpr int TRADE_DATETIME = 203;
inline constexpr int CURRENT_DATETIME = 206;
inline constexpr int RECORD_DEL = 230;
inline constexpr int CONFLATION_INTERVAL = 2029;
inline constexpr int CONFLATION = 2035;
inline constexpr int UNDERLYING_SYMBOL = 3083;
inline constexpr int CUSIP = 3123;
inline constexpr int ISIN = 3125;
inline constexpr int SEDOL = 3126;
inline constexpr int UNDERLYING_SOURCE = 3130;
inline constexpr int JIT_THRESHOLD = 3683;
inline constexpr int BLOOMBERG_TICKER = 3950;
inline constexpr int QUINTAL_TICKER = 3958;
inline constexpr int PRODUCT_ROOT = 3974;
inline constexpr int STATUS = 5001;
inline constexpr int TOKEN_STORE = 5002;
inline constexpr int HUB_VERSION = 5008;
inline constexpr int TOKEN_NAME = 5010;
inline constexpr int TOKEN_SIZE = 5011;
inline constexpr int TOKEN_TYPE = 5012;
inline constexpr int COMMAND = 5022;
inline constexpr int TAG = 5026;
inline constexpr int USER_NAME = 5028;
inline constexpr int PASSWORD = 5029;
inline constexpr int ENUM_DESC = 5033;
inline constexpr int ENUM_VALUE = 5034;
inline constexpr int TOKEN_NUM = 5035;
inline constexpr int DEPTH_TYPE = 5039;
inline constexpr int QUERY_REF_TAG = 5052;
inline constexpr int CLIENT_VERSION = 5053;
inline constexpr int IDLE_COUNT = 5065;
inline constexpr int DICTIONARY_VERSION = 5080;
inline constexpr int PLATFORM = 5128;
inline constexpr int LANGUAGE = 5129;
inline constexpr int CONFLATE_INDICATOR = 5201;
inline constexpr int FILTER_ID = 5205;
inline constexpr int HOST = 13001;
inline constexpr int PORT = 13101;
inline constexpr int COMPRESSION = 13265;
inline constexpr int DROPPED_BYTES = 13266;
inline constexpr int QUEUE_PERCENT = 13912;
} // namespace token

/// Status codes that this hub gives under token::STATUS. 0 is success, everything else a refusal.
namespace status {
inline constexpr int SUCCESS = 0;
inline constexpr int DENY_LOGIN = -4;
inline constexpr int BAD_LOGIN = -5;
inline constexpr int TOO_MANY_LOGINS = -6;
inline constexpr int NO_PERMISSION = -11;
inline constexpr int UNKNOWN_SYMBOL = -12;
inline constexpr int UNKNOWN_COMMAND = -13;
inline constexpr int UNKNOWN_SUBSCRIPTION = -14;
inline constexpr int NOT_LOGGED_IN = -15;
inline constexpr int UNKNOWN_TOKEN = -24;
inline constexpr int BAD_PARAMETER = -33;
inline constexpr int NO_PORT = -46;
inline constexpr int BUSY = -218;
inline constexpr int NOT_CARRIED = -220;
} // namespace status

/// The source that carries the hub's own records.
inline constexpr int SYSTEM_SOURCE = 922;
/// Sources from this number up are news sources, which several hubs of a group may carry at once.
inline constexpr int FIRST_NEWS_SOURCE = 4096;

inline constexpr const char* HEARTBEAT_SYMBOL = ".UTC.TIME.DATE";
inline constexpr const char* HUB_STATUS_SYMBOL = ".HUB.STATUS";
inline constexpr const char* QUERY_ERROR_SYMBOL = "QERROR";
inline constexpr const char* JIT_SYMBOL = ".JIT";
inline constexpr const char* ENTITLEMENT_SYMBOL = ".USER.ENT.ALERT";

} // namespace tivra_sim
