#pragma once

#include "kvnparse/Inflater.h"

#include <zlib.h>

namespace KVNAPI {

/// zlib itself: what every other inflater is judged by.
class ZlibInflater final : public Inflater {
public:
    ZlibInflater() { static_cast<void>(restart()); }
    ~ZlibInflater() override { inflateEnd(&m_stream); }

    Code restart() override;
    [[nodiscard]] Step inflate(bufref input, char* output, std::size_t room) override;
    [[nodiscard]] const char* reason() const override { return m_stream.msg == nullptr ? "" : m_stream.msg; }
    [[nodiscard]] const char* name() const override { return "zlib"; }

private:
    z_stream m_stream{};
};

} // namespace KVNAPI
