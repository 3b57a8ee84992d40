#include "kvnparse/IsalInflater.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace KVNAPI {
namespace {

constexpr std::size_t kWindow = ISAL_DEF_HIST_SIZE;
/// ISA-L decodes into a buffer of its own up to here, and then straight into the caller's.
constexpr std::size_t kOwnBuffer = 2 * kWindow;
/// Where a block may begin in that buffer at the latest, so that much of it is left.
constexpr std::size_t kLatestBegin = kOwnBuffer - 4096;
/// More input than one symbol takes with what ISA-L reads ahead.
constexpr std::size_t kAroundFault = 48;

constexpr unsigned kDeflated = 8;
constexpr std::uint32_t kDictionaryFlag = 0x20;

} // namespace

Inflater::Code IsalInflater::restart() {
    isal_inflate_init(&m_state);
    m_phase = Phase::STREAM_HEADER;
    m_hasFixedCodes = false;
    m_isLast = false;
    m_reason = "";
    m_sum = 1;
    m_number = 0;
    m_numberBytes = 0;
    m_headSize = 0;
    return PROGRESS;
}

Inflater::Step IsalInflater::inflate(bufref input, char* output, std::size_t room) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
    // ISA-L only reads them.
    m_state.next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(input.buf));
    m_state.avail_in = static_cast<std::uint32_t>(std::min(input.len, kMost));
    m_start = m_state.next_in;
    m_output = reinterpret_cast<std::uint8_t*>(output);
    m_room = room;
    Turn turn = Turn::GO_ON;
    while (turn == Turn::GO_ON)
        turn = takeTurn();
    return {turn == Turn::REFUSED ? DATA_ERROR : PROGRESS,
            static_cast<std::size_t>(m_state.next_in - m_start), room - m_room};
}

IsalInflater::Turn IsalInflater::takeTurn() {
    switch (m_phase) {
    case Phase::STREAM_HEADER:
        return readStreamHeader();
    case Phase::DICTIONARY:
        // There is none that a hub could mean.
        return gatherNumber(4) ? refuse("") : Turn::WAIT;
    case Phase::BLOCK_HEAD:
        return readBlockHead();
    case Phase::BLOCK:
        return inflateBlock();
    case Phase::SUM:
        return readSum();
    case Phase::FAULT:
        return putOutBeforeFault();
    case Phase::END:
        break;
    }
    return Turn::WAIT;
}

IsalInflater::Turn IsalInflater::refuse(const char* reason) {
    m_reason = reason;
    return Turn::REFUSED;
}

// The next byte at the beginning of one, of what ISA-L has taken already or of the input.
bool IsalInflater::takeByte(std::uint8_t& byte) {
    if (m_state.read_in_length >= 8) {
        byte = static_cast<std::uint8_t>(m_state.read_in);
        m_state.read_in >>= 8;
        m_state.read_in_length -= 8;
        return true;
    }
    if (m_state.avail_in == 0)
        return false;
    byte = *m_state.next_in++;
    --m_state.avail_in;
    return true;
}

// A number with its highest byte first; false while bytes of it are still to come.
bool IsalInflater::gatherNumber(unsigned bytes) {
    for (std::uint8_t byte = 0; m_numberBytes < bytes; ++m_numberBytes) {
        if (!takeByte(byte))
            return false;
        m_number = m_number << 8 | byte;
    }
    m_numberBytes = 0;
    return true;
}

IsalInflater::Turn IsalInflater::readStreamHeader() {
    if (!gatherNumber(2))
        return Turn::WAIT;
    const std::uint32_t header = m_number;
    m_number = 0;
    if (header % 31 != 0)
        return refuse("incorrect header check");
    if ((header >> 8 & 15) != kDeflated)
        return refuse("unknown compression method");
    // A window of 32 kilobytes is the largest, and smaller ones are not held to, as with zlib.
    if ((header >> 12) > 7)
        return refuse("invalid window size");
    m_phase = (header & kDictionaryFlag) != 0 ? Phase::DICTIONARY : Phase::BLOCK_HEAD;
    return Turn::GO_ON;
}

IsalInflater::Turn IsalInflater::readSum() {
    const int partOfByte = m_state.read_in_length % 8;
    m_state.read_in >>= partOfByte;
    m_state.read_in_length -= partOfByte;
    if (!gatherNumber(4))
        return Turn::WAIT;
    if (m_number != m_sum)
        return refuse("incorrect data check");
    m_phase = Phase::END;
    return Turn::WAIT;
}

std::uint64_t IsalInflater::heldBits() const {
    const auto count = static_cast<unsigned>(m_state.read_in_length);
    return count < 64 ? m_state.read_in & ((std::uint64_t{1} << count) - 1) : m_state.read_in;
}

IsalInflater::Turn IsalInflater::readBlockHead() {
    DeflateBits bits{heldBits(), static_cast<unsigned>(m_state.read_in_length), {}};
    // What has come of the head before stands in front of the new bytes.
    const std::size_t added = std::min<std::size_t>(m_state.avail_in, kHeadRoom - m_headSize);
    if (m_headSize > 0) {
        std::copy_n(m_state.next_in, added, m_head.begin() + static_cast<std::ptrdiff_t>(m_headSize));
        bits.bytes = {m_head.data(), m_headSize + added};
    } else {
        bits.bytes = {m_state.next_in, m_state.avail_in};
    }
    const DeflateBlockHead head = readDeflateBlockHead(bits);
    if (head.standing == DeflateBlockHead::Standing::REFUSED)
        return refuse(head.reason);
    if (head.standing == DeflateBlockHead::Standing::SOUND)
        return beginBlock(head);
    if (m_headSize == 0)
        std::copy_n(m_state.next_in, added, m_head.begin());
    m_headSize += added;
    m_state.next_in += added;
    m_state.avail_in -= static_cast<std::uint32_t>(added);
    return Turn::WAIT;
}

// ISA-L reads a head only where it has to make tables. Every block is the last of its stream to it: it stops
// after such a one.
IsalInflater::Turn IsalInflater::beginBlock(const DeflateBlockHead& head) {
    using Kind = DeflateBlockHead::Kind;
    m_isLast = head.isLast;
    m_phase = Phase::BLOCK;
    if (head.kind == Kind::OWN_CODES || (head.kind == Kind::FIXED_CODES && !m_hasFixedCodes)) {
        m_hasFixedCodes = head.kind == Kind::FIXED_CODES;
        return judge(readTables(head));
    }
    skipHead(head);
    if (head.kind == Kind::STORED && head.storedBytes == 0) // as every flush ends
        return endBlock();
    m_state.bfinal = 1;
    m_state.type0_block_len = static_cast<std::int32_t>(head.storedBytes);
    m_state.block_state = head.kind == Kind::STORED ? ISAL_BLOCK_TYPE0 : ISAL_BLOCK_CODED;
    return Turn::GO_ON;
}

// With nothing but the head: ISA-L, seeing so little input, makes tables that give one symbol at a time. With
// its larger ones it keeps back what has come whole until it has the bits of two more.
int IsalInflater::readTables(const DeflateBlockHead& head) {
    std::uint8_t* const input = m_state.next_in;
    const std::size_t size = m_state.avail_in;
    const std::size_t ofInput = head.bytes - m_headSize;
    if (m_headSize > 0)
        m_state.next_in = m_head.data();
    m_headSize = 0;
    m_state.avail_in = static_cast<std::uint32_t>(head.bytes);
    if (m_state.read_in_length == 0) {
        m_state.read_in = *m_state.next_in++;
        m_state.read_in_length = 8;
        --m_state.avail_in;
    }
    m_state.read_in |= 1;
    const int result = run();
    m_state.next_in = input + ofInput;
    m_state.avail_in = static_cast<std::uint32_t>(size - ofInput);
    return result;
}

void IsalInflater::skipHead(const DeflateBlockHead& head) {
    const std::size_t ofInput = head.bytes - m_headSize;
    m_headSize = 0;
    m_state.next_in += ofInput;
    m_state.avail_in -= static_cast<std::uint32_t>(ofInput);
    m_state.read_in = head.rest;
    m_state.read_in_length = static_cast<std::int32_t>(head.restCount);
}

IsalInflater::Turn IsalInflater::inflateBlock() {
    const std::uint32_t input = m_state.avail_in;
    const std::size_t room = m_room;
    const Turn turn = judge(run());
    const bool hasMoved = m_state.avail_in != input || m_room != room || m_phase != Phase::BLOCK;
    return turn == Turn::GO_ON && !hasMoved ? Turn::WAIT : turn;
}

IsalInflater::Turn IsalInflater::judge(int result) {
    if (result < 0) {
        m_faultNeedsRoom = result == ISAL_INVALID_LOOKBACK;
        m_reason =
            m_faultNeedsRoom ? "invalid distance too far back" : "invalid literal/length or distance code";
        m_phase = Phase::FAULT;
        return Turn::GO_ON;
    }
    if (m_state.block_state == ISAL_BLOCK_FINISH)
        return endBlock();
    if (pendingOutput() > 0) {
        if (m_room > 0)
            return Turn::GO_ON;
        returnUnusedInput();
        return Turn::WAIT;
    }
    return m_state.avail_in > 0 ? Turn::GO_ON : Turn::WAIT;
}

// One go at the block, of which ISA-L says how far it got.
int IsalInflater::run() {
    const Place before{m_state.next_in,           m_state.avail_in,       m_state.read_in,
                       m_state.read_in_length,    m_state.block_state,    m_state.tmp_out_valid,
                       m_state.tmp_out_processed, m_state.type0_block_len};
    int result = decode();
    auto made = static_cast<std::size_t>(m_state.next_out - m_output);
    // A fault that it meets in its own buffer.
    if (result < 0 && static_cast<std::size_t>(m_state.tmp_out_processed - before.putOut) == made) {
        result = runExactly(before);
        made = static_cast<std::size_t>(m_state.next_out - m_output);
    }
    if (m_state.block_state == ISAL_BLOCK_INPUT_DONE || m_state.block_state == ISAL_BLOCK_FINISH)
        keepWindow(made);
    notePutOut(made);
    m_state.read_in = heldBits(); // it leaves parts of the next byte above them
    return result;
}

// ISA-L decodes into the caller's room once its own buffer is full and has been put out, and looks for the
// window there: before that it gets no more room than its own buffer will fill.
int IsalInflater::decode() {
    const auto putOut = static_cast<std::size_t>(m_state.tmp_out_processed);
    const bool mayPass = putOut <= kWindow || m_state.block_state == ISAL_BLOCK_INPUT_DONE;
    const std::size_t most = mayPass ? std::numeric_limits<std::uint32_t>::max() : kOwnBuffer - 1 - putOut;
    m_state.next_out = m_output;
    m_state.avail_out = static_cast<std::uint32_t>(std::min(m_room, most));
    return isal_inflate(&m_state);
}

// In its fast loop ISA-L counts a match as put out before it finds that it can't be. Decodes up to a fault
// once more, and the last bytes before it one at a time, which is left to the slow loop.
int IsalInflater::runExactly(const Place& place) {
    const auto taken = static_cast<std::size_t>(m_state.next_in - place.input);
    m_state.next_in = place.input;
    m_state.read_in = place.bits;
    m_state.read_in_length = place.bitCount;
    m_state.block_state = place.state;
    m_state.tmp_out_valid = place.made;
    m_state.tmp_out_processed = place.putOut;
    m_state.type0_block_len = place.stored;
    std::uint8_t* const output = m_output;
    const std::size_t room = m_room;
    std::size_t given = taken - std::min(taken, kAroundFault);
    int result = 0;
    for (std::size_t left = place.size; result >= 0 && given <= left; left -= given, given = 1) {
        m_state.avail_in = static_cast<std::uint32_t>(given);
        result = decode();
        m_room -= static_cast<std::size_t>(m_state.next_out - m_output);
        m_output = m_state.next_out;
        if (left == given)
            break;
    }
    m_output = output;
    m_room = room;
    m_state.avail_in = place.size - static_cast<std::uint32_t>(m_state.next_in - place.input);
    return result;
}

// At the end of a block ISA-L forgets what it has not put into its own buffer, and the next block may look
// back at that.
void IsalInflater::keepWindow(std::size_t produced) {
    if (produced < kWindow)
        return;
    const std::size_t pending = pendingOutput();
    std::uint8_t* const buffer = m_state.tmp_out_buffer;
    std::memmove(buffer + kWindow, buffer + m_state.tmp_out_processed, pending);
    std::memcpy(buffer, m_output + produced - kWindow, kWindow);
    m_state.tmp_out_processed = static_cast<std::int32_t>(kWindow);
    m_state.tmp_out_valid = static_cast<std::int32_t>(kWindow + pending);
}

IsalInflater::Turn IsalInflater::endBlock() {
    returnUnusedInput();
    const auto size = static_cast<std::size_t>(m_state.tmp_out_valid);
    if (size > kLatestBegin) {
        std::memmove(m_state.tmp_out_buffer, m_state.tmp_out_buffer + size - kWindow, kWindow);
        m_state.tmp_out_valid = m_state.tmp_out_processed = static_cast<std::int32_t>(kWindow);
    }
    m_state.block_state = ISAL_BLOCK_NEW_HDR;
    m_phase = m_isLast ? Phase::SUM : Phase::BLOCK_HEAD;
    return Turn::GO_ON;
}

// ISA-L finds a fault as soon as it has decoded so far; the stream is refused where zlib would: once
// everything before the fault has found room.
IsalInflater::Turn IsalInflater::putOutBeforeFault() {
    const std::size_t size = std::min(m_room, pendingOutput());
    std::copy_n(m_state.tmp_out_buffer + m_state.tmp_out_processed, size, m_output);
    m_state.tmp_out_processed += static_cast<std::int32_t>(size);
    notePutOut(size);
    return pendingOutput() > 0 || (m_faultNeedsRoom && m_room == 0) ? Turn::WAIT : Turn::REFUSED;
}

void IsalInflater::notePutOut(std::size_t size) {
    m_sum = isal_adler32(m_sum, m_output, size);
    m_output += size;
    m_room -= size;
}

// Gives the whole bytes that ISA-L has taken ahead back to the input that they are of.
void IsalInflater::returnUnusedInput() {
    const auto taken = static_cast<std::size_t>(m_state.next_in - m_start);
    const std::size_t bytes =
        std::min<std::size_t>(static_cast<std::size_t>(m_state.read_in_length) / 8, taken);
    m_state.next_in -= bytes;
    m_state.avail_in += static_cast<std::uint32_t>(bytes);
    m_state.read_in_length -= static_cast<std::int32_t>(8 * bytes);
    m_state.read_in = heldBits();
}

std::size_t IsalInflater::pendingOutput() const {
    return static_cast<std::size_t>(m_state.tmp_out_valid - m_state.tmp_out_processed);
}

} // namespace KVNAPI
