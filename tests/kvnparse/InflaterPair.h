#pragma once

#include "ParserTestKit.h"

#include "kvnparse/Inflater.h"
#include "kvnparse/ZlibInflater.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kvnparse_test {

/// An inflater beside zlib: both get the same pieces of a stream and the same rooms, and each keeps what it
/// has left of its input.
class InflaterPair {
public:
    explicit InflaterPair(KVNAPI::Inflater& judged) : m_judged{judged}, m_zlib{m_reference} {}

    /// Begins a stream and ends with it. Returns the first difference, or nothing: after every call both have
    /// put out and refused the same.
    std::string compare(const std::vector<std::string_view>& pieces, std::uint32_t seed) {
        m_random = seed;
        for (Side* side : {&m_judged, &m_zlib}) {
            side->inflater.restart();
            side->rest.clear();
        }
        std::string difference;
        bool goesOn = true;
        for (std::size_t i = 0; i < pieces.size() && goesOn; ++i) {
            m_judged.rest += pieces[i];
            m_zlib.rest += pieces[i];
            goesOn = takePiece(i + 1 < pieces.size() ? pieces[i + 1] : std::string_view(), difference);
        }
        return difference;
    }

private:
    struct Side {
        KVNAPI::Inflater& inflater;
        std::string rest{};
        std::string made{};
        KVNAPI::Inflater::Code code{};
        GuardedBytes input{kMost};
        GuardedBytes output{kMost};

        void inflate(std::size_t room) {
            const KVNAPI::bufref in =
                input.place(std::string_view(rest).substr(0, kMost), GuardedBytes::END_AT_GUARD);
            const KVNAPI::bufref out = output.place(std::string(room, '?'), GuardedBytes::END_AT_GUARD);
            const auto step = inflater.inflate(in, out.room(), room);
            code = step.code;
            made.assign(out.buf, step.produced);
            rest.erase(0, step.consumed);
        }
    };

    /// False when the stream is refused or a difference found.
    bool takePiece(std::string_view next, std::string& difference) {
        for (std::size_t room = 0;;) {
            m_random = m_random * 1664525 + 1013904223;
            room = (m_random >> 8) % (std::uint32_t{2} << (m_random >> 24) % (m_random >> 30 == 0 ? 17 : 9));
            m_judged.inflate(room);
            m_zlib.inflate(room);
            if (m_judged.code != m_zlib.code || m_judged.code != KVNAPI::Inflater::PROGRESS) {
                difference = judgeRefusal(next, room);
                return false;
            }
            if (m_judged.made != m_zlib.made)
                difference = "put out " + std::to_string(m_judged.made.size()) + " bytes, zlib " +
                             std::to_string(m_zlib.made.size()) + " into " + std::to_string(room);
            else if (m_zlib.made.size() < room && m_judged.rest != m_zlib.rest)
                difference = "left " + std::to_string(m_judged.rest.size()) + " bytes of input, zlib " +
                             std::to_string(m_zlib.rest.size());
            if (!difference.empty() || m_zlib.made.size() < room)
                return difference.empty();
        }
    }

    /// A pattern without a meaning, of which a part has come, may be refused before the rest of it comes.
    std::string judgeRefusal(std::string_view next, std::size_t room) {
        const std::string reason = m_judged.inflater.reason();
        const bool isSymbol = reason == "invalid literal/length or distance code";
        if (m_judged.code == m_zlib.code || !isSymbol)
            return judgeReason(reason, isSymbol);
        const bool wantsInput = m_zlib.made.size() < room;
        m_zlib.rest.append(next).append(2, '\0');
        m_zlib.inflate(kMost);
        if (!wantsInput || !m_zlib.made.empty())
            return "refused (" + reason + ") with output still due";
        return judgeReason(reason, isSymbol);
    }

    std::string judgeReason(const std::string& reason, bool isSymbol) {
        const std::string zlibReason = m_zlib.inflater.reason();
        if (m_judged.code == m_zlib.code &&
            (reason == zlibReason || (isSymbol && (zlibReason == "invalid distance code" ||
                                                   zlibReason == "invalid literal/length code"))))
            return {};
        return "ended with " + std::to_string(m_judged.code) + " (" + reason + "), zlib with " +
               std::to_string(m_zlib.code) + " (" + zlibReason + ")";
    }

    static constexpr std::size_t kMost = std::size_t{1} << 18;
    KVNAPI::ZlibInflater m_reference;
    Side m_judged;
    Side m_zlib;
    std::uint32_t m_random = 0;
};

} // namespace kvnparse_test
