#pragma once

#include "kvnparse/NameFactory.h"

#include <memory>

namespace KVNAPI {

class Encoder;
class Framer;
class Parser;

/// Makes a framer or a parser for frames of less than the given number of bytes.
using framerFactory_t = std::unique_ptr<Framer> (*)(int maxBufferSize);
using parserFactory_t = std::unique_ptr<Parser> (*)(int maxBufferSize);
using encoderFactory_t = std::unique_ptr<Encoder> (*)();

// The three lists of the process, each defined beside what it makes. They are only read once threads run, so
// they need no lock.
extern NameFactory<framerFactory_t> FramerList;
extern NameFactory<parserFactory_t> ParserList;
extern NameFactory<encoderFactory_t> EncoderList;

/// Append a row to their list. The texts are kept by pointer and must be static. Call before threads start.
void registerFramer(framerFactory_t factory, const char* name, const char* desc);
void registerParser(parserFactory_t factory, const char* name, const char* desc);
void registerEncoder(encoderFactory_t factory, const char* name, const char* desc);

namespace factory_texts {
inline constexpr char kCompressedTokens[] = "Compressed Brindsel Token Format (HUB->applications)";
inline constexpr char kTokens[] = "Brindsel Token Format (HUB->applications)";
inline constexpr char kVerbose[] = "Verbose output from detoker2";
} // namespace factory_texts

} // namespace KVNAPI
