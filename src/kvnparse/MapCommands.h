#pragma once

namespace KVNAPI {

class DataMap;
class Message;

/// The dictionary of the language that map files are written in. Returns -1 with a text in te_geterror when
/// `commands` refuses a token.
[[nodiscard]] int buildLoadMap(DataMap* commands);

/// Runs one command, parsed with that dictionary, on `map`. Unknown ones do nothing. Returns -1 with a text
/// in te_geterror.
[[nodiscard]] int runMapCommand(DataMap* commands, const Message* command, DataMap* map);

} // namespace KVNAPI
