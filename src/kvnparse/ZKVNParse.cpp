#include "kvnparse/ZKVNParse.h"

#include "kvnparse/KVNParsers.h"

#include <tp/eprintf.h>
#include <tp/te_error.h>

#include <algorithm>
#include <cstring>

#include <zlib.h>

namespace KVNAPI {

ZKVNParser::ZKVNParser() : outbuf(std::make_unique<char[]>(kOutBufferSize)) {
    eprintf(EPF_DBUG, "ZKVNParser: zlibVersion=%s; ZLIB_VERSION=%s", zlibVersion(), ZLIB_VERSION);
    eprintf(EPF_DBUG, "ZKVNParser: inflater=%s", m_inflater->name());
}

int ZKVNParser::setMetaMap(DataMap* map) {
    std::unique_ptr<Parser> inner = Parser::alloc("kvn", map, static_cast<int>(kOutBufferSize));
    if (inner == nullptr) {
        tp::te_error("Could not allocate KVN Parser");
        return 1;
    }
    kvnParser_ = std::move(inner);
    return kvnParser_->setMetaMap(map);
}

int ZKVNParser::setOption(const char* name, const char* value) {
    return kvnParser_ == nullptr ? -1 : kvnParser_->setOption(name, value);
}

void ZKVNParser::push(bufref bytes) {
    buf_ = bytes;
    // The block begins with whatever moveRemaining has kept, so what is left of an older one is in it.
    firstUncompressIteration = true;
    m_freshInput = bytes.len > 0;
}

int ZKVNParser::moveRemaining(bufref dst) {
    // Bytes that were pushed and never looked at count as a whole.
    const bufref kept = m_freshInput ? buf_ : m_rest;
    std::size_t have = kept.len;
    if (have > dst.len) {
        eprintf(EPF_WARN, "ZKVNParser::moveRemaining(): truncating have=%lu to out.len=%lu",
                static_cast<unsigned long>(have), static_cast<unsigned long>(dst.len));
        have = dst.len;
    }
    if (have > 0)
        std::memmove(const_cast<char*>(dst.buf), kept.buf, have);
    m_rest = bufref(dst.buf, have);
    m_freshInput = false;
    return static_cast<int>(have);
}

int ZKVNParser::pull(bufref* out) {
    return unCompressAndPushToKVNParser(out);
}

int ZKVNParser::pull(Message* message) {
    if (!kvnParsePullInProgress) {
        const int result = unCompressAndPushToKVNParser(nullptr);
        if (result < 0)
            return result;
    }
    return pullKVNMessages(message);
}

int ZKVNParser::pullKVNMessages(Message* message) {
    for (;;) {
        const int result = kvnParser_->pull(message);
        if (result <= 0) {
            kvnParsePullInProgress = true;
            return result;
        }
        kvnParsePullInProgress = false;
        if (firstUncompressIteration && !m_freshInput && !m_outputPending) {
            buf_ = bufref();
            return result;
        }
        const int inflated = unCompressAndPushToKVNParser(nullptr);
        if (inflated < 0)
            return inflated;
    }
}

int ZKVNParser::unCompressAndPushToKVNParser(bufref* out) {
    if (out == nullptr && kvnParser_ == nullptr) {
        tp::te_error("Could not allocate KVN Parser");
        return -1;
    }
    if (firstUncompressIteration) {
        m_rest = buf_;
        m_freshInput = false;
    }
    char* space = nullptr;
    std::size_t room = 0;
    if (out != nullptr) {
        space = out->room();
        room = out->len;
        bytes_read = 0;
    } else {
        // An incomplete frame stays at the front, and inflating goes on behind it.
        bytes_read =
            static_cast<std::uint32_t>(kvnParser_->moveRemaining(bufref(outbuf.get(), kOutBufferSize)));
        space = outbuf.get() + bytes_read;
        room = kOutBufferSize - bytes_read;
        if (room == 0) {
            // The frame in progress can never complete, and another turn would change nothing.
            reset();
            tp::te_error("Block too large");
            return -1;
        }
    }

    const Inflater::Step step = m_inflater->inflate(m_rest, space, room);
    if (step.code != Inflater::PROGRESS)
        return failStream(step.code);

    m_outputPending = step.produced == room;
    // What is left of the input is what a repeated pull and moveRemaining go on with.
    buf_ = m_rest = bufref(m_rest.buf + step.consumed, m_rest.len - step.consumed);
    if (out != nullptr) {
        firstUncompressIteration = true;
        if (m_outputPending)
            eprintf(EPF_DBUG,
                    "***ZKVNParser::unCompressAndPushToKVNParser: d_stream.avail_out=%u (br->len=%lu)", 0U,
                    static_cast<unsigned long>(room));
        out->len = static_cast<bufref_len_t>(step.produced);
        return 0;
    }
    firstUncompressIteration = !m_outputPending;
    bytes_read += static_cast<std::uint32_t>(step.produced);
    if (bytes_read > 0)
        kvnParser_->push(bufref(outbuf.get(), bytes_read));
    return 0;
}

int ZKVNParser::failStream(Inflater::Code code) {
    char reason[128] = "";
    const char* const text = m_inflater->reason();
    std::memcpy(reason, text, std::min(std::strlen(text), sizeof reason - 1));
    const Inflater::Code restarted = m_inflater->restart();
    reset();
    tp::te_error("zlib error (%d(%s), %d)", code, reason, restarted);
    return -1;
}

void ZKVNParser::reset() {
    buf_ = m_rest = bufref();
    if (kvnParser_ != nullptr)
        kvnParser_->reset();
    static_cast<void>(m_inflater->restart());
    firstUncompressIteration = true;
    m_freshInput = false;
    m_outputPending = false;
    kvnParsePullInProgress = false;
    bytes_read = 0;
}

std::unique_ptr<Parser> newZKVNparser(int /*maxBufferSize*/) {
    return std::make_unique<ZKVNParser>();
}

} // namespace KVNAPI
