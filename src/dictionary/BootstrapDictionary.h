#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace tivra_internal {

/// A field that is known before any dictionary has been downloaded.
struct BootstrapToken {
    int number;
    std::string_view name;
    std::string_view typeWord;
    std::size_t length;
};

/// Enough to read the start-up conversation, in ascending number; ends at the row of number 0.
inline constexpr std::array<BootstrapToken, 24> kBootstrapDictionary{{
    {3, "PERMISSION", "INTEGER", 20},           {4, "ENUM.SRC.ID", "INTEGER", 20},
    {5, "SYMBOL.TICKER", "STRING", 32},         {2035, "CONFLATION", "INTEGER", 20},
    {5001, "ENUM.QUERY.STATUS", "INTEGER", 20}, {5002, "KVN.TOKEN.STORE", "BOOL", 1},
    {5004, "TOKEN.DEL", "INTEGER", 20},         {5008, "HUB.VERSION", "STRING", 29},
    {5010, "KVN.TOKEN.NAME", "STRING", 60},     {5011, "KVN.TOKEN.SIZE", "INTEGER", 20},
    {5012, "KVN.TOKEN.TYPE", "STRING", 29},     {5026, "QUERY.TAG", "INTEGER", 20},
    {5033, "KVN.ENUM.DESC", "STRING", 120},     {5034, "KVN.ENUM.VALUE", "INTEGER", 20},
    {5035, "KVN.TOKEN.NUM", "INTEGER", 20},     {5065, "IDLE.COUNT", "INTEGER", 20},
    {5080, "DIC.VERSION", "STRING", 16},        {5201, "CONFLATE.INDICATOR", "INTEGER", 20},
    {13001, "HOST.SERVER.IP", "STRING", 32},    {13101, "CLIENT.PORT", "INTEGER", 20},
    {13266, "DROPPED.BYTES", "INTEGER", 20},    {45028, "UNKNOWNTOKEN", "STRING", 128},
    {45029, "UNKNOWNSVALUE", "STRING", 128},    {0, "", "", 0},
}};

} // namespace tivra_internal
