#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace tivra_testkit {

/// The reader's end of one zlib stream, as a hub sends it over a compressed connection.
class Inflater {
public:
    Inflater();
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    /// Takes the next bytes of the stream and returns what can be had of it so far. Throws std::runtime_error
    /// when it is no zlib stream.
    std::string operator()(std::string_view bytes);

private:
    struct Stream;
    std::unique_ptr<Stream> m_stream;
};

} // namespace tivra_testkit
