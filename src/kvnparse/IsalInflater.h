#pragma once

#include "kvnparse/DeflateBlockHead.h"
#include "kvnparse/Inflater.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include <isa-l/igzip_lib.h>

namespace KVNAPI {

/// ISA-L, which decodes the content of blocks several times as fast as zlib. What stands around that is read
/// here, by zlib's rules: the header and the sum of the stream, and the head of each block. ISA-L gets one
/// block at a time, because it accepts codes that zlib refuses.
class IsalInflater final : public Inflater {
public:
    IsalInflater() { static_cast<void>(restart()); }

    Code restart() override;
    [[nodiscard]] Step inflate(bufref input, char* output, std::size_t room) override;
    [[nodiscard]] const char* reason() const override { return m_reason; }
    [[nodiscard]] const char* name() const override { return "ISA-L"; }

private:
    enum class Phase { STREAM_HEADER, DICTIONARY, BLOCK_HEAD, BLOCK, SUM, END, FAULT };
    /// Where ISA-L stands in a block: enough to decode on from there once more.
    struct Place {
        std::uint8_t* input;
        std::uint32_t size;
        std::uint64_t bits;
        std::int32_t bitCount;
        isal_block_state state;
        std::int32_t made;
        std::int32_t putOut;
        std::int32_t stored;
    };
    /// How one phase has ended.
    enum class Turn { GO_ON, WAIT, REFUSED };

    /// More than the head of any block takes.
    static constexpr std::size_t kHeadRoom = 512;

    Turn takeTurn();
    Turn readStreamHeader();
    Turn readBlockHead();
    Turn beginBlock(const DeflateBlockHead& head);
    int readTables(const DeflateBlockHead& head);
    void skipHead(const DeflateBlockHead& head);
    Turn inflateBlock();
    Turn judge(int result);
    Turn endBlock();
    Turn putOutBeforeFault();
    Turn readSum();
    Turn refuse(const char* reason);

    int run();
    int runExactly(const Place& place);
    int decode();
    void keepWindow(std::size_t produced);
    void notePutOut(std::size_t size);
    void returnUnusedInput();
    [[nodiscard]] bool takeByte(std::uint8_t& byte);
    [[nodiscard]] bool gatherNumber(unsigned bytes);
    [[nodiscard]] std::size_t pendingOutput() const;
    [[nodiscard]] std::uint64_t heldBits() const;

    inflate_state m_state{}; ///< its input is always what is left of the caller's
    Phase m_phase = Phase::STREAM_HEADER;
    bool m_hasFixedCodes = false;  ///< in its tables
    bool m_isLast = false;         ///< the block in progress ends the stream
    bool m_faultNeedsRoom = false; ///< zlib looks at a match only when there is room for it
    const char* m_reason = "";
    std::uint8_t* m_output = nullptr;             ///< where the next byte goes
    std::size_t m_room = 0;                       ///< from there
    const std::uint8_t* m_start = nullptr;        ///< of the caller's input
    std::uint32_t m_sum = 1;                      ///< of all that has been put out
    std::uint32_t m_number = 0;                   ///< of the header or the sum, as far as it has come
    unsigned m_numberBytes = 0;                   ///< how many of its bytes have come
    std::array<std::uint8_t, kHeadRoom> m_head{}; ///< the beginning of a block whose head is not complete
    std::size_t m_headSize = 0;
};

} // namespace KVNAPI
