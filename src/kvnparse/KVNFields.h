#pragma once

namespace KVNAPI {

class KVNParse;

// Functions of the tokens that are lifted into the header of a message or raise a flag of it: kvnparser_t.

const char* parseExchange(KVNParse* parse, const char* position);
const char* parsePermission(KVNParse* parse, const char* position);
const char* parseSymbol(KVNParse* parse, const char* position);
const char* parseRefresh(KVNParse* parse, const char* position);
const char* parseDenom(KVNParse* parse, const char* position);
const char* parseMarket(KVNParse* parse, const char* position);
const char* parseRetCode(KVNParse* parse, const char* position);
const char* parseTag(KVNParse* parse, const char* position);
const char* parseCusip(KVNParse* parse, const char* position);
const char* parseIsin(KVNParse* parse, const char* position);
const char* parseSedol(KVNParse* parse, const char* position);
const char* parseSymBbgTicker(KVNParse* parse, const char* position);
const char* parseSymQuinTicker(KVNParse* parse, const char* position);
const char* parseProdRoot(KVNParse* parse, const char* position);

} // namespace KVNAPI
